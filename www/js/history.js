// The way back for the last changes made on this page. What somebody else changed since is left as it is.

const most = 50;

export class History {
    constructor(on_change) {
        this.changes = [];
        this.on_change = on_change;
    }

    // change: {text, still_so(): whether the grid is as the change left it, undo(): Promise of null or the reason why not}
    add(change) {
        this.changes.push(change);
        if (this.changes.length > most) this.changes.shift();
        this.on_change();
    }

    last() {
        return this.changes.at(-1);
    }

    // Resolves to {text, refused}, or null when there is nothing to undo.
    async undo_last() {
        const change = this.changes.pop();
        this.on_change();
        if (change === undefined) return null;
        if (!change.still_so())
            return {text: change.text, refused: `Not undone: somebody else has changed it since (${change.text}).`};
        return {text: change.text, refused: await change.undo()};
    }
}
