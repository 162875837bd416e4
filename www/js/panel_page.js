// The front panel: simulated pins can be pressed, held and latched, buttons pressed; LEDs, relays and outputs show their levels.
import {get_panel, post_panel} from './api.js';
import {by_id, make, set_attribute, set_text} from './dom.js';
import {clear_host_events, show_host_event} from './host_events.js';
import {follow_unit} from './live.js';
import {make_pressable} from './press_button.js';
import {say_refused} from './toasts.js';
import {show_contact, show_unit} from './unit_contact.js';
import {on_off} from './words.js';

const no_contact = 'No contact with the unit. Nothing was changed.';

// What each list of a "levels" event changes.
const shown_lists = ['pins', 'buttons', 'leds', 'relays'];

class PanelPage {
    constructor() {
        this.live = false;
        this.tiles = new Map();
        this.fetching = null;
        this.again = false;
        this.reported = [];
        by_id('show_unused').addEventListener('change', () => this.show_unused());
        by_id('clear_events').addEventListener('click', clear_host_events);
        clear_host_events();
        follow_unit({
            on_hello: (unit) => this.hello(unit),
            on_event: (...event) => this.event(...event),
            on_stale: () => this.set_live(false),
        });
    }

    hello(unit) {
        show_unit(unit, 'Panel');
        this.refresh();
    }

    event(name, data, text) {
        if (name === 'host') show_host_event(data, text);
        if (name === 'grid') this.refresh();
        if (name === 'levels' && data !== null) this.take_levels(data);
    }

    // One request at a time; what changes meanwhile is asked for once more. Levels reported on the way may be newer than the
    // answer, so they are taken again on top of it.
    async refresh() {
        if (this.fetching !== null) {
            this.again = true;
            return;
        }
        this.reported = [];
        this.again = false;
        clearTimeout(this.retry);
        this.fetching = get_panel();
        try {
            const panel = await this.fetching;
            this.fetching = null;
            this.show(panel);
            for (const levels of this.reported) this.apply_levels(levels);
            this.set_live(true);
        } catch (error) {
            this.fetching = null;
            this.set_live(false);
            if (this.tiles.size === 0) set_text(by_id('waiting'), error.message);
            this.retry = setTimeout(() => this.refresh(), 2000);
            return;
        }
        if (this.again) this.refresh();
    }

    set_live(live) {
        this.live = live;
        show_contact(live);
    }

    take_levels(levels) {
        if (this.fetching !== null) this.reported.push(levels);
        this.apply_levels(levels);
    }

    apply_levels(levels) {
        for (const list of shown_lists) {
            for (const [id, level] of levels[list] ?? []) this.tiles.get(`${list}${id}`)?.set_level(level !== 0);
        }
    }

    // Builds the panel when it is another one than before; else only the levels change, so that nothing is let go that is held.
    show(panel) {
        by_id('waiting').hidden = true;
        const shape = JSON.stringify([
            panel.simulated,
            (panel.pins ?? []).map(({level, ...pin}) => pin),
            (panel.buttons ?? []).map((button) => [button.name, button.enabled]),
            (panel.leds ?? []).map((led) => led.name),
            (panel.relays ?? []).length,
        ]);
        if (shape !== this.shape) this.build(panel);
        this.shape = shape;
        for (const pin of panel.pins ?? []) this.tiles.get(`pins${pin.pin}`)?.set_level(pin.level !== 0);
        for (const button of panel.buttons ?? []) this.tiles.get(`buttons${button.number}`)?.set_level(button.pressed === true);
        for (const led of panel.leds ?? []) this.tiles.get(`leds${led.number}`)?.set_level(led.lit === true);
        for (const relay of panel.relays ?? []) this.tiles.get(`relays${relay.index}`)?.set_level(relay.on === true);
    }

    build(panel) {
        this.tiles.clear();
        const pins = (panel.pins ?? []).filter((pin) => pin.direction === 'in');
        const outputs = (panel.pins ?? []).filter((pin) => pin.direction === 'out');
        by_id('real_pins').hidden = panel.simulated !== false;
        this.fill(
            'inputs',
            pins.filter((pin) => !pin.cough).map((pin) => this.input_tile(pin, panel.simulated !== false))
        );
        this.fill(
            'coughs',
            pins.filter((pin) => pin.cough).map((pin) => this.input_tile(pin, panel.simulated !== false))
        );
        this.fill(
            'buttons',
            (panel.buttons ?? []).map((button) => this.button_tile(button))
        );
        this.fill(
            'outputs',
            outputs.map((pin) => this.lamp_tile(`pins${pin.pin}`, pin.name, `pin ${pin.pin}`, pin.in_use === false))
        );
        this.fill(
            'relays',
            (panel.relays ?? []).map((relay) =>
                this.lamp_tile(`relays${relay.index}`, relay.name, `pin ${relay.pin}`, false, 'relay')
            )
        );
        this.show_unused();
    }

    fill(id, tiles) {
        by_id(id).replaceChildren(...tiles);
        by_id(id)
            .closest('section')
            .classList.toggle('without', tiles.length === 0);
    }

    lamp_tile(key, name, detail, unused, kind = '') {
        const lamp = make('span', {class: 'lamp'});
        const tile = make(
            'li',
            {class: `tile ${kind}${unused ? ' unused' : ''}`},
            tile_name(name, unused ? `${detail}, not an output now` : detail),
            lamp
        );
        this.tiles.set(key, {set_level: (on) => show_lamp(tile, lamp, on, on_off(on))});
        return tile;
    }

    input_tile(pin, simulated) {
        const unused = pin.in_use === false;
        const lamp = make('span', {class: 'lamp'});
        const press = make(
            'button',
            {type: 'button', class: 'press', disabled: unused, 'aria-label': `Press ${pin.name}`},
            'Press'
        );
        const latch = make(
            'button',
            {
                type: 'button',
                class: 'latch',
                disabled: unused,
                'aria-label': `Latch ${pin.name}`,
                'aria-pressed': 'false',
                title: 'Keeps it pressed until it is chosen again',
            },
            'Latch'
        );
        const detail = unused ? `pin ${pin.pin}, not an input now` : `pin ${pin.pin}`;
        const tile = make('li', {class: `tile input${unused ? ' unused' : ''}`}, tile_name(pin.name, detail), lamp);
        if (simulated) tile.append(make('div', {class: 'press_buttons'}, press, latch));
        const form = (down) => ({pin: pin.pin, level: down ? 'active' : 'inactive'});
        const send = (down) => this.post(form(down));
        const held = make_pressable(press, this.holder(form));
        latch.addEventListener('click', () => send(latch.getAttribute('aria-pressed') !== 'true'));
        this.tiles.set(`pins${pin.pin}`, {
            set_level: (on) => {
                show_lamp(tile, lamp, on, on ? 'pressed' : 'open');
                set_attribute(latch, 'aria-pressed', String(on && !held.is_down()));
            },
        });
        return tile;
    }

    button_tile(button) {
        const light = make('span', {class: 'lamp'});
        const press = make(
            'button',
            {type: 'button', class: 'press', disabled: button.enabled === false, 'aria-label': `Press ${button.name}`},
            'Press'
        );
        const tile = make(
            'li',
            {class: 'tile user_button'},
            tile_name(button.name, button.enabled === false ? 'not an input now' : 'its LED'),
            light,
            make('div', {class: 'press_buttons'}, press)
        );
        make_pressable(
            press,
            this.holder((down) => ({button: button.number, pressed: down ? 1 : 0}))
        );
        this.tiles.set(`buttons${button.number}`, {
            set_level: (on) => {
                press.classList.toggle('pressed', on);
                set_attribute(press, 'aria-pressed', String(on));
            },
        });
        this.tiles.set(`leds${button.number}`, {set_level: (on) => show_lamp(tile, light, on, on_off(on))});
        return tile;
    }

    // What was pressed is let go of whether or not there is contact: a page that is left loses its contact before it ends.
    holder(form) {
        let pressed = false;
        return (down) => {
            if (!down && !pressed) return;
            pressed = down && this.live;
            this.post(form(down), !down);
        };
    }

    async post(fields, without_contact = false) {
        if (!this.live && !without_contact) return say_refused(no_contact);
        try {
            await post_panel(fields);
        } catch (error) {
            say_refused(error.message);
        }
    }

    show_unused() {
        by_id('panel').classList.toggle('with_unused', by_id('show_unused').checked);
    }
}

function tile_name(name, detail) {
    return make('div', {class: 'tile_name'}, make('strong', {}, String(name)), make('small', {}, detail));
}

function show_lamp(tile, lamp, on, words) {
    tile.classList.toggle('on', on);
    set_text(lamp, words);
}

new PanelPage();
