// How the pages name things, for the eye, for screen readers and in messages.
import {is_port} from './model.js';

export const modes = ['Latching', 'Momentary'];
export const mode_help = ['each press turns it over', 'on only while it is held'];

// Of these only a physical port keeps a mode of its own: a user button always latches, a cough port never does.
const usual_modes = {physical: 1, cough: 1, user_button: 0};
export const has_mode = (item) => item.class in usual_modes;
export const can_choose_mode = (item) => item.class === 'physical';
export const usual_mode = (item) => usual_modes[item.class];
export const is_virtual = (item) => item.class === 'virtual';
// A cough port and a user button only listen, an LED only shows.
export const can_be_input = (item) => is_port(item) && item.class !== 'user_led';
export const can_be_output = (item) => is_port(item) && item.class !== 'cough' && item.class !== 'user_button';

export const on_off = (on) => (on ? 'on' : 'off');

export const has_source = (item) => typeof item.source === 'string' && item.source !== '-' && item.source !== '';

// The second line of a row's header.
export function setting_of(item) {
    if (item.side !== 'input') return '';
    if (has_mode(item)) return modes[item.mode] ?? '';
    if (!is_virtual(item)) return '';
    if (!has_source(item)) return 'No source';
    return item.source_valid ? `From ${item.source}` : `Lost: ${item.source}`;
}

export const source_is_lost = (item) => item.side === 'input' && is_virtual(item) && has_source(item) && !item.source_valid;

// What a port or relay is stands in its name already.
function kind_of(item) {
    if (item.class !== 'event') return '';
    return item.side === 'input' ? 'event' : 'handler';
}

export const item_facts = (item) => [kind_of(item), setting_of(item), on_off(item.on)].filter((part) => part !== '').join(', ');
export const item_label = (item) => `${item.name}, ${item_facts(item)}`;

export function connection_words(connection) {
    if (connection === undefined) return 'not connected';
    const invert = connection.invert ? 'inverted' : '';
    const lock = connection.locked ? 'invert fixed' : '';
    return ['connected', invert, lock, on_off(connection.on)].filter((part) => part !== '').join(', ');
}

export function cell_label(input, output, connection) {
    return `${input.name} to ${output.name}, ${connection_words(connection)}`;
}

export const pair = (input, output) => `${input.name} \u2192 ${output.name}`;
