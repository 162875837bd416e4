// What the page knows of the grid: items (rows and columns) and the connections between them, by key.
// Keys: t<id> trigger, h<id> handler, p<index> port, r<index> relay; a connection is "<input key>><output key>".

export const input_groups = ['Events', 'Physical ports', 'Cough ports', 'Virtual ports', 'User buttons', 'Other ports'];
export const output_groups = ['Handlers', 'Physical ports', 'Virtual ports', 'User LEDs', 'Relays', 'Other ports'];

const group_of_class = {
    physical: 'Physical ports',
    cough: 'Cough ports',
    virtual: 'Virtual ports',
    user_button: 'User buttons',
    user_led: 'User LEDs',
    relay: 'Relays',
};

const letter_of_class = {relay: 'r'};

export function item_key(side, item_class, id) {
    if (item_class === 'event') return `${side === 'input' ? 't' : 'h'}${id}`;
    return `${letter_of_class[item_class] ?? 'p'}${id}`;
}

export const connection_key = (input_key, output_key) => `${input_key}>${output_key}`;
export const split_connection_key = (key) => key.split('>');

export function item_from(entry, side) {
    const groups = side === 'input' ? input_groups : output_groups;
    const group = entry.class === 'event' ? groups[0] : group_of_class[entry.class];
    return {
        key: item_key(side, entry.class, entry.index),
        side,
        class: String(entry.class),
        id: entry.index,
        name: String(entry.name),
        on: entry.state === true,
        mode: entry.input_mode,
        source: entry.vgpo_src,
        source_valid: entry.vgpo_src_valid === true,
        group: groups.includes(group) ? group : 'Other ports',
    };
}

export const is_port = (item) => item.class !== 'event' && item.class !== 'relay';

function ordered(entries, side) {
    const groups = side === 'input' ? input_groups : output_groups;
    const items = (entries ?? []).map((entry) => item_from(entry, side));
    return items.sort((a, b) => groups.indexOf(a.group) - groups.indexOf(b.group));
}

function connection_from(entry) {
    const key = connection_key(
        item_key('input', entry.input_class, entry.input_id),
        item_key('output', entry.output_class, entry.output_id)
    );
    return [key, {invert: entry.invert === true, locked: entry.allow_invert === false, on: entry.state === true}];
}

const end_of = (key, item_class, id, name) => ({key, class: item_class, id, name});

// A connection to an output from a port that is no input at present; the port's trigger still drives the output.
function hidden_connection(entry, items) {
    const [key, connection] = connection_from(entry);
    const [input_key, output_key] = split_connection_key(key);
    const name = items.get(input_key)?.name ?? `${entry.input_class} ${entry.input_id}`;
    return {...connection, input: end_of(input_key, entry.input_class, entry.input_id, name), output: items.get(output_key)};
}

// What each list of a "levels" event tells, and of which items.
const level_lists = {triggers: 't', handlers: 'h', ports: 'p', relays: 'r'};

export class GridModel {
    constructor(document = {}) {
        this.inputs = ordered(document.inputs, 'input');
        this.outputs = ordered(document.outputs, 'output');
        this.items = new Map([...this.inputs, ...this.outputs].map((item) => [item.key, item]));
        this.sources = (document.vgpo_src_list ?? []).map((source) => String(source.name)).filter((name) => name !== '-');
        // Connections with an end that is not on the grid have no cell.
        const entries = document.connections ?? [];
        this.connections = new Map(entries.map(connection_from).filter(([key]) => this.has_cell(key)));
        this.hidden = entries
            .map((entry) => hidden_connection(entry, this.items))
            .filter(({input, output}) => output?.side === 'output' && this.items.get(input.key)?.side !== 'input');
    }

    has_cell(key) {
        const [input, output] = split_connection_key(key);
        return this.items.get(input)?.side === 'input' && this.items.get(output)?.side === 'output';
    }

    connection(input, output) {
        return this.connections.get(connection_key(input.key, output.key));
    }

    // [key, connection] of every connection that begins or ends at the item.
    connections_of(item_key_wanted) {
        return [...this.connections].filter(([key]) => split_connection_key(key).includes(item_key_wanted));
    }

    // Takes a "levels" event over and returns the keys of the items that look different now.
    take_levels(levels) {
        const changed = new Set();
        for (const [list, letter] of Object.entries(level_lists)) {
            for (const [id, level] of levels[list] ?? []) this.take_level(`${letter}${id}`, level !== 0, changed);
        }
        for (const [index, valid] of levels.sources ?? []) this.take_source(`p${index}`, valid !== 0, changed);
        return changed;
    }

    take_level(key, on, changed) {
        const item = this.items.get(key);
        if (item === undefined || item.on === on) return;
        item.on = on;
        changed.add(key);
        if (item.side === 'input') this.deliver(item);
    }

    deliver(input) {
        for (const output of this.outputs) {
            const connection = this.connection(input, output);
            if (connection !== undefined) connection.on = input.on !== connection.invert;
        }
    }

    take_source(key, valid, changed) {
        const item = this.items.get(key);
        if (item === undefined || item.source_valid === valid) return;
        item.source_valid = valid;
        changed.add(key);
    }
}
