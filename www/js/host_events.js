// The unit's own account of what happened, newest first, as `zelctl watch` tells it.
import {by_id, make, set_text} from './dom.js';
import {on_off} from './words.js';

const most = 200;

const on = (event, member) => event[member] === 1 || event[member] === true;

function pin_words(event) {
    const what = event.direction === 'input' ? (on(event, 'level') ? 'pressed' : 'released') : on_off(on(event, 'level'));
    return [event.name || `Pin ${event.pin}`, what];
}

function state_words(kind) {
    return (event) => {
        const why = event.by && event.by !== event.name ? `by ${event.by}` : '';
        return [`${kind}${event.name}`, on_off(on(event, 'state')), why];
    };
}

// Subject, what happened, and why.
const words = {
    pin: pin_words,
    event: state_words('Event '),
    handler: state_words('Handler '),
    call: state_words('Handler '),
    led: state_words(''),
    button: (event) => [`User Button ${event.number}`, 'pressed'],
    udp: (event) => [`GPI ${event.number} over UDP`, on_off(on(event, 'level'))],
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
