// What the operator changes: requests, a look at the grid whether they did what was wanted, and the way back.
// Every change resolves to null, or to the reason in the operator's words.
import {post_connection, post_item} from './api.js';
import {connection_key, is_port} from './model.js';
import {can_choose_mode, has_mode, has_source, is_virtual, modes, pair, usual_mode} from './words.js';

const same_connection = (a, b) => (a === undefined || b === undefined ? a === b : a.invert === b.invert);

function connection_form(input, output, wanted) {
    return {
        action: wanted === undefined ? 0 : 1,
        inputClass: input.class,
        inputID: input.id,
        outputClass: output.class,
        outputID: output.id,
        gpioInvert: wanted?.invert ? 1 : 0,
    };
}

// wanted: {invert}, or undefined for none.
export async function set_connection(store, input, output, wanted) {
    try {
        await post_connection(connection_form(input, output, wanted));
        await store.refresh();
    } catch (error) {
        return error.message;
    }
    const found = store.model.connections.get(connection_key(input.key, output.key));
    return same_connection(found, wanted) ? null : why_not_connected(store, input, output, wanted, found);
}

function why_not_connected(store, input, output, wanted, found) {
    const gone = [input, output].find((item) => store.model.items.get(item.key)?.side !== item.side);
    if (gone !== undefined) return `${gone.name} is no longer on the grid as an ${gone.side}.`;
    if (wanted === undefined) return `The unit kept ${pair(input, output)} connected.`;
    if (found === undefined) return `The unit did not connect ${pair(input, output)}. Its list of connections may be full.`;
    if (found.locked) return invert_is_fixed(input, output);
    return `The unit did not change the invert of ${pair(input, output)}.`;
}

// Takes away a connection that has no cell: its input is none at present.
export async function remove_hidden(store, {input, output}) {
    try {
        await post_connection(connection_form(input, output, undefined));
        await store.refresh();
    } catch (error) {
        return error.message;
    }
    const left = store.model.hidden.some((each) => each.input.key === input.key && each.output.key === output.key);
    return left ? `The unit kept ${pair(input, output)} connected.` : null;
}

export function invert_is_fixed(input, output) {
    const why = 'the connection the other way round exists as well, and both stay alike. Remove one of them first.';
    return `The invert of ${pair(input, output)} is fixed: ${why}`;
}

// Where an item stands and with which settings; side null: it is not on the grid.
export const off_grid = {side: null};

export function placement_of(model, key) {
    const item = model.items.get(key);
    return item === undefined ? off_grid : {side: item.side, mode: item.mode, source: has_source(item) ? item.source : '-'};
}

const states = {input: 1, output: 2};

function placing_form(item, placement) {
    const form = {gpioType: item.class, gpioPort: item.id, newState: states[placement.side] ?? 0};
    if (item.class === 'event' && placement.side === null && item.side === 'input') form.gpioInMode = 0;
    if (is_port(item) && placement.side === 'input' && has_mode(item)) form.gpioInMode = mode_for(item, placement);
    if (is_port(item) && placement.side === 'input' && is_virtual(item)) form.vgpoSrc = placement.source ?? '-';
    return form;
}

const mode_for = (item, placement) => (can_choose_mode(item) ? placement.mode : undefined) ?? usual_mode(item);

// A port is turned round by way of "disabled": that takes its connections with it, and lets go of the events that drove it
// without ending them for everybody else.
export async function place_items(store, items, placement) {
    try {
        const turned = items.filter(
            (item) => is_port(item) && placement.side !== null && turns_round(store.model, item, placement)
        );
        for (const form of joined_forms(turned, off_grid)) await post_item(form);
        for (const form of joined_forms(items, placement)) await post_item(form);
        await store.refresh();
    } catch (error) {
        return error.message;
    }
    const reasons = items.map((item) => why_not_placed(store.model, item, placement)).filter((reason) => reason !== null);
    return reasons.length === 0 ? null : reasons.join(' ');
}

function turns_round(model, item, placement) {
    const now = model.items.get(item.key);
    return now !== undefined && now.side !== placement.side;
}

// Items whose requests differ only in the item go in one request.
function joined_forms(items, placement) {
    const forms = new Map();
    for (const item of items) {
        const form = placing_form(item, placement);
        const likeness = JSON.stringify({...form, gpioPort: ''});
        const known = forms.get(likeness);
        if (known === undefined) forms.set(likeness, form);
        else known.gpioPort = `${known.gpioPort},${form.gpioPort}`;
    }
    return [...forms.values()];
}

function why_not_placed(model, item, placement) {
    const now = placement_of(model, item.key);
    if (now.side !== placement.side) return why_not_there(item, placement);
    if (placement.side !== 'input') return null;
    if (can_choose_mode(item) && now.mode !== placement.mode)
        return `The unit did not make ${item.name} ${modes[placement.mode].toLowerCase()}.`;
    if (is_virtual(item) && now.source !== placement.source)
        return `${item.name} did not get the source ${placement.source}: it is no longer offered on the network.`;
    return null;
}

function why_not_there(item, placement) {
    if (placement.side === null) return `The unit kept ${item.name} on the grid.`;
    if (item.class === 'physical' || item.class === 'cough')
        return `The unit could not make ${item.name} an ${placement.side}. Another program may use its pin.`;
    return `The unit did not put ${item.name} on the grid as an ${placement.side}.`;
}

// Everything that is lost when the item is taken off the grid or turned round.
export function snapshot(model, item) {
    const connections = model.connections_of(item.key).map(([key, connection]) => {
        const [input, output] = key.split('>').map((end) => model.items.get(end));
        return {input, output, invert: connection.invert};
    });
    return {item, placement: placement_of(model, item.key), connections};
}

export async function restore(store, {item, placement, connections}) {
    const refused = await place_items(store, [item], placement);
    if (refused !== null) return refused;
    for (const {input, output, invert} of connections) {
        const reason = await set_connection(store, input, output, {invert});
        if (reason !== null) return reason;
    }
    return null;
}
