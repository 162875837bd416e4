// What a row or a column is: a port's direction, mode and source can be changed, and every item be taken off the grid.
import {place_items, off_grid, placement_of, remove_hidden, restore, snapshot} from './changes.js';
import {counted, make} from './dom.js';
import {ask, open_dialog, radio, radio_value} from './dialogs.js';
import {is_port} from './model.js';
import {
    can_be_input,
    can_be_output,
    can_choose_mode,
    connection_words,
    has_source,
    is_virtual,
    item_facts,
    mode_help,
    modes,
    pair,
    usual_mode,
} from './words.js';

const most_listed = 6;

function list_of_connections(connections) {
    const shown = connections
        .slice(0, most_listed)
        .map(({input, output, invert}) => make('li', {}, pair(input, output) + (invert ? ', inverted' : '')));
    const rest = connections.length - shown.length;
    if (rest > 0) shown.push(make('li', {}, `and ${rest} more`));
    return make('ul', {class: 'plain_list'}, ...shown);
}

function direction_choice(item) {
    if (!is_port(item)) return null;
    const fixed = !can_be_output(item)
        ? `A ${item.group.toLowerCase().replace(/s$/, '')} is always an input.`
        : 'A user LED is always an output.';
    if (!can_be_input(item) || !can_be_output(item)) return make('p', {class: 'hint'}, fixed);
    return make(
        'fieldset',
        {},
        make('legend', {}, 'Direction'),
        radio('side', 'input', item.side === 'input', 'Input', 'drives handlers and outputs'),
        radio('side', 'output', item.side === 'output', 'Output', 'is driven by events and inputs')
    );
}

export function mode_choice(chosen) {
    return make(
        'fieldset',
        {class: 'modes'},
        make('legend', {}, 'Input mode'),
        ...modes.map((text, mode) => radio('mode', mode, mode === chosen, text, mode_help[mode]))
    );
}

export function source_choice(sources, chosen) {
    const select = make('select', {id: 'source'}, make('option', {value: '-'}, 'No source'));
    const missing = chosen !== '-' && !sources.includes(chosen);
    if (missing) select.append(make('option', {value: chosen}, `${chosen} (not on the network now)`));
    for (const name of sources) select.append(make('option', {value: name}, name));
    select.value = chosen;
    const hint =
        sources.length === 0 ? make('small', {class: 'hint'}, 'No virtual outputs of other units are on the network now.') : null;
    return make(
        'fieldset',
        {class: 'sources'},
        make('label', {class: 'label', for: 'source'}, 'Source: a virtual output of another unit'),
        select,
        hint
    );
}

class ItemDialog {
    constructor(page, item) {
        this.page = page;
        this.item = item;
        this.before = snapshot(page.store.model, item);
    }

    open() {
        const {item} = this;
        this.direction = direction_choice(item);
        this.mode = can_choose_mode(item) ? mode_choice(item.mode ?? usual_mode(item)) : null;
        this.source = is_virtual(item)
            ? source_choice(this.page.store.model.sources, has_source(item) ? item.source : '-')
            : null;
        this.loss = make('p', {class: 'hint'});
        const content = [
            make('p', {}, `Now: ${item_facts(item)}`),
            this.direction,
            this.mode,
            this.source,
            this.connections(),
            this.hidden_connections(),
            this.loss,
        ];
        const changeable = this.direction?.tagName === 'FIELDSET' || this.mode !== null || this.source !== null;
        const actions = [{text: 'Remove from the grid\u2026', kind: 'danger', left: true, run: () => this.remove()}];
        if (changeable) actions.push({text: 'Apply', kind: 'main', run: () => this.apply()});
        this.frame = open_dialog({
            title: item.name,
            content: content.filter((part) => part !== null),
            actions,
            close_text: changeable ? 'Cancel' : 'Close',
            on_close: () => this.page.return_focus(),
        });
        this.frame.dialog.addEventListener('change', () => this.adapt());
        this.adapt();
    }

    connections() {
        const {connections} = this.before;
        if (connections.length === 0) return make('p', {class: 'hint'}, 'It has no connections.');
        return make(
            'div',
            {},
            make('p', {class: 'label'}, counted(connections.length, 'connection')),
            list_of_connections(connections)
        );
    }

    // What drives an output from a port that is an output itself now cannot be seen in the grid.
    hidden_connections() {
        const hidden = this.page.store.model.hidden.filter(({output}) => output.key === this.item.key);
        if (hidden.length === 0) return null;
        const note = 'Connected as well, without a row in the grid, because it is no input now:';
        return make('div', {}, make('p', {class: 'label'}, note), ...hidden.map((each) => this.hidden_line(each)));
    }

    hidden_line(each) {
        const button = make('button', {type: 'button'}, 'Disconnect');
        const line = make('p', {class: 'option'}, `${each.input.name}, ${connection_words(each)}`, button);
        button.addEventListener('click', async () => {
            const refused = await remove_hidden(this.page.store, each);
            if (refused === null) line.remove();
            this.frame.refuse(refused ?? '');
        });
        return line;
    }

    chosen() {
        const side = radio_value(this.frame.dialog, 'side') ?? this.item.side;
        const mode = this.mode === null ? undefined : Number(radio_value(this.mode, 'mode'));
        return {side, mode, source: this.source?.querySelector('select').value ?? '-'};
    }

    turns_round() {
        return this.chosen().side !== this.item.side;
    }

    // Mode and source belong to inputs; turning a port round takes its connections.
    adapt() {
        for (const part of [this.mode, this.source]) if (part !== null) part.hidden = this.chosen().side !== 'input';
        const lost = this.turns_round() ? this.before.connections.length : 0;
        this.loss.hidden = lost === 0;
        const way_back = `Undo brings ${lost === 1 ? 'it' : 'them'} back.`;
        this.loss.textContent = `Turning it round removes its ${counted(lost, 'connection')}. ${way_back}`;
        const button = this.frame.button(1);
        if (button !== undefined) button.textContent = lost === 0 ? 'Apply' : `Apply and remove ${counted(lost, 'connection')}`;
    }

    async apply() {
        const wanted = this.chosen();
        const now = placement_of(this.page.store.model, this.item.key);
        const settings_differ =
            (this.mode !== null && now.mode !== wanted.mode) || (this.source !== null && now.source !== wanted.source);
        if (now.side === wanted.side && (wanted.side === 'output' || !settings_differ)) return true;
        return this.place(wanted, `changed ${this.item.name}`);
    }

    async remove() {
        const {connections} = this.before;
        if (connections.length > 0 && !(await confirm_removal(this.item, connections))) return false;
        return this.place(off_grid, `removed ${this.item.name}`);
    }

    async place(placement, text) {
        const {store} = this.page;
        const refused = await place_items(store, [this.item], placement);
        if (refused !== null) return refused;
        const placed = JSON.stringify(placement_of(store.model, this.item.key));
        this.page.done({
            text,
            still_so: () => JSON.stringify(placement_of(store.model, this.item.key)) === placed,
            undo: () => restore(store, this.before),
        });
        return true;
    }
}

function confirm_removal(item, connections) {
    return ask({
        title: `Remove ${item.name}?`,
        content: [
            make('p', {}, `Its ${counted(connections.length, 'connection')} will be removed as well:`),
            list_of_connections(connections),
        ],
        action: 'Remove',
        close_text: 'Keep',
    });
}

export function open_item(page, item) {
    new ItemDialog(page, item).open();
}

// Delete on a header: at once without connections, as there is a way back; else after a question.
export async function remove_item(page, item) {
    const removal = new ItemDialog(page, item);
    const outcome = await removal.remove();
    if (typeof outcome === 'string') page.refused(outcome);
}
