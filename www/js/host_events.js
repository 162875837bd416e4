// The unit's own account of what happened, newest first, as `zelctl watch` tells it.
import {by_id, make, set_text} from './dom.js';
import {on_off} from './words.js';

const most = 200;

const on = (event, member) => event[member] === 1 || event[member] === true;

// The unit calls a port by what it is at the moment, the pages by what it always is.
const port_words = {GPI: 'Physical Port', GPO: 'Physical Port', COUGH: 'Cough Port', vGPI: 'Virtual Port', vGPO: 'Virtual Port'};
const port_pattern = /^(GPI|GPO|COUGH|vGPI|vGPO) (\d+)$/;
const shown_name = (name) => String(name).replace(port_pattern, (whole, word, number) => `${port_words[word]} ${number}`);

function pin_words(event) {
    const what = event.direction === 'input' ? (on(event, 'level') ? 'pressed' : 'released') : on_off(on(event, 'level'));
    return [shown_name(event.name || `Pin ${event.pin}`), what];
}

// A port that is an input raises an event of its own.
function event_words(event) {
    const is_port = port_pattern.test(event.name) || /^User Button \d+$/.test(event.name);
    return [is_port ? shown_name(event.name) : `Event ${event.name}`, on_off(on(event, 'state'))];
}

function handler_words(event) {
    const why = event.by && event.by !== event.name ? `by ${shown_name(event.by)}` : '';
    return [`Handler ${event.name}`, on_off(on(event, 'state')), why];
}

// Subject, what happened, and why.
const words = {
    pin: pin_words,
    event: event_words,
    handler: handler_words,
    call: handler_words,
    led: (event) => [event.name, on_off(on(event, 'state'))],
    button: (event) => [`User Button ${event.number}`, 'pressed'],
    udp: (event) => [`Physical Port ${event.number} over UDP`, on_off(on(event, 'level'))],
};

function time_of_day() {
    const now = new Date();
    const two = (number, digits = 2) => String(number).padStart(digits, '0');
    return `${two(now.getHours())}:${two(now.getMinutes())}:${two(now.getSeconds())}.${two(now.getMilliseconds(), 3)}`;
}

function parts_of(event, text) {
    const known = event !== null && typeof event === 'object' ? words[event.change] : undefined;
    return known === undefined ? [text] : known(event);
}

export function show_host_event(event, text) {
    const [subject, what = '', why = ''] = parts_of(event, text);
    const list = by_id('events');
    const line = make(
        'li',
        {},
        make('time', {}, time_of_day()),
        make(
            'span',
            {},
            make('strong', {}, subject),
            what === '' ? '' : ` ${what}`,
            why === '' ? '' : make('small', {}, ` ${why}`)
        )
    );
    list.prepend(line);
    while (list.children.length > most) list.lastElementChild.remove();
    by_id('no_events').hidden = true;
}

export function clear_host_events() {
    by_id('events').replaceChildren();
    by_id('no_events').hidden = false;
    set_text(by_id('no_events'), 'Nothing yet. Press something.');
}
