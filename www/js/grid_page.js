// The grid page: joins the unit's events, the picture of the grid, its drawing, and what the operator does.
import {invert_is_fixed, set_connection} from './changes.js';
import {by_id, make, set_attribute, set_text} from './dom.js';
import {open_add} from './add_dialog.js';
import {GridStore} from './grid_store.js';
import {GridView} from './grid_view.js';
import {History} from './history.js';
import {open_item, remove_item} from './item_dialog.js';
import {handle_grid_key, handle_page_key, show_keys} from './keys.js';
import {follow_unit} from './live.js';
import {connection_key} from './model.js';
import {say, say_refused} from './toasts.js';
import {show_contact, show_unit} from './unit_contact.js';
import {connection_words, item_facts, item_label, pair} from './words.js';

const no_contact = 'No contact with the unit. Nothing was changed.';

class GridPage {
    constructor() {
        this.live = false;
        this.store = new GridStore({on_model: () => this.show_model(), on_levels: (keys) => this.show_levels(keys)});
        this.view = new GridView(by_id('grid'), {
            on_cell: (input, output, event, was_active) => this.cell_acted(input, output, event, was_active),
            on_item: (item) => this.open_item(item),
            on_active: () => this.show_inspector(),
        });
        this.history = new History(() => this.show_undo());
        this.listen();
        follow_unit({
            on_hello: (unit) => this.hello(unit),
            on_event: (name, data) => this.event(name, data),
            on_stale: () => this.set_live(false),
            rests: true,
        });
    }

    listen() {
        by_id('grid').addEventListener('keydown', (event) => handle_grid_key(event, this));
        document.addEventListener('keydown', (event) => handle_page_key(event, this));
        for (const id of ['filter_inputs', 'filter_outputs']) {
            by_id(id).addEventListener('input', () => this.show_model());
            by_id(id).addEventListener('keydown', (event) => this.filter_key(event));
        }
        document.querySelector('.skip').addEventListener('click', (event) => {
            event.preventDefault();
            this.view.go_to(this.view.active.row, this.view.active.column);
        });
        by_id('connected_only').addEventListener('change', () => this.show_model());
        by_id('undo').addEventListener('click', () => this.undo());
        by_id('add_input').addEventListener('click', () => this.open_add('input'));
        by_id('add_output').addEventListener('click', () => this.open_add('output'));
        by_id('help').addEventListener('click', () => this.help());
        by_id('toggle_cell').addEventListener('click', () => this.toggle());
        by_id('invert_cell').addEventListener('click', () => this.invert());
    }

    // What the unit says

    async hello(unit) {
        show_unit(unit, 'Grid');
        try {
            await this.store.refresh();
            this.set_live(true);
        } catch (error) {
            this.could_not_fetch(error);
        }
    }

    event(name, data) {
        if (name === 'levels' && data !== null) this.store.take_levels(data);
        if (name === 'grid') this.store.refresh().catch((error) => this.could_not_fetch(error));
    }

    // The events may go on although the grid could not be fetched: it is asked for again, and stale until then.
    could_not_fetch(error) {
        this.set_live(false);
        if (!by_id('empty').hidden) this.show_empty('The grid could not be fetched', error.message, []);
        clearTimeout(this.again);
        this.again = setTimeout(
            () =>
                this.store.refresh().then(
                    () => this.set_live(true),
                    (reason) => this.could_not_fetch(reason)
                ),
            2000
        );
    }

    set_live(live) {
        this.live = live;
        show_contact(live);
        this.show_undo();
        this.show_inspector();
        for (const id of ['add_input', 'add_output']) by_id(id).disabled = !live;
    }

    // What is shown

    show_model() {
        const {model} = this.store;
        const [inputs, outputs] = this.filtered(model);
        const nothing = inputs.length === 0 || outputs.length === 0;
        by_id('grid').hidden = nothing;
        by_id('empty').hidden = !nothing;
        if (nothing) this.explain_empty(model);
        this.view.show(model, inputs, outputs);
        this.show_inspector();
    }

    filtered(model) {
        const words = (id) => by_id(id).value.trim().toLowerCase();
        const matching = (items, wanted) =>
            wanted === '' ? items : items.filter((item) => item_label(item).toLowerCase().includes(wanted));
        let lists = [matching(model.inputs, words('filter_inputs')), matching(model.outputs, words('filter_outputs'))];
        if (by_id('connected_only').checked) {
            const ends = new Set([...model.connections.keys()].flatMap((key) => key.split('>')));
            lists = lists.map((items) => items.filter((item) => ends.has(item.key)));
        }
        return lists;
    }

    explain_empty(model) {
        if (model.inputs.length > 0 && model.outputs.length > 0) {
            this.show_empty('Nothing matches the filter', 'Inputs and outputs are on the grid, but not with these words.', [
                ['Show everything', () => this.clear_filters()],
            ]);
        } else {
            const lacking = ['input', 'output'].filter((side) => model[`${side}s`].length === 0);
            this.show_empty(
                lacking.length === 2 ? 'The grid is empty' : `No ${lacking[0]}s yet`,
                'Add an input, for example a physical port or an event, and an output, for example a relay. ' +
                    'Where row and column meet you connect them.',
                lacking.map((side) => [`Add ${side}`, () => this.open_add(side)])
            );
        }
    }

    show_empty(title, text, actions) {
        set_text(by_id('empty_title'), title);
        set_text(by_id('empty_text'), text);
        by_id('empty_actions').replaceChildren(
            ...actions.map(([words, run]) => {
                const button = make('button', {type: 'button', class: 'main'}, words);
                button.addEventListener('click', run);
                return button;
            })
        );
    }

    clear_filters() {
        by_id('filter_inputs').value = '';
        by_id('filter_outputs').value = '';
        by_id('connected_only').checked = false;
        this.show_model();
    }

    show_levels(keys) {
        this.view.refresh_items(keys);
        this.show_inspector();
    }

    show_inspector() {
        const [input, output] = this.chosen();
        const connection = input && output ? this.store.model.connection(input, output) : undefined;
        by_id('cell_actions').hidden = !(input && output);
        by_id('about').replaceChildren(...this.about(input, output, connection));
        set_text(by_id('toggle_cell'), connection === undefined ? 'Connect' : 'Disconnect');
        set_text(by_id('invert_cell'), connection?.invert ? 'Do not invert' : 'Invert');
        by_id('toggle_cell').disabled = !this.live;
        by_id('invert_cell').disabled = !this.live || connection === undefined || connection.locked;
        set_attribute(by_id('invert_cell'), 'title', connection?.locked ? invert_is_fixed(input, output) : null);
    }

    // Before anything was chosen there is only the hint.
    chosen() {
        return this.view.active_element === undefined || !this.was_used ? [] : this.view.active_items();
    }

    about(input, output, connection) {
        if (input && output)
            return [make('strong', {}, pair(input, output)), make('span', {}, ` \u00b7 ${connection_words(connection)}`)];
        const item = input ?? output;
        if (item) return [make('strong', {}, item.name), make('span', {}, ` \u00b7 ${item_facts(item)}`)];
        return [make('span', {}, 'Choose a cell to connect a row\u2019s input to a column\u2019s output.')];
    }

    show_undo() {
        const last = this.history?.last();
        by_id('undo').disabled = last === undefined || !this.live;
        set_attribute(by_id('undo'), 'title', last === undefined ? 'Nothing to undo' : `Undo: ${last.text} (Ctrl Z)`);
    }

    // What the operator does

    // From now on there is a chosen place, which is told of.
    use() {
        this.was_used = true;
        this.show_inspector();
    }

    // A finger may slip: its first tap only chooses. A double click is meant as one.
    cell_acted(input, output, event, was_active) {
        const chosen_before = was_active && this.was_used;
        this.use();
        if (event.pointerType === 'touch' && !chosen_before) return;
        if (event.pointerType === 'mouse' && event.detail > 1) return;
        this.toggle();
    }

    open_item(item) {
        this.was_used = true;
        if (this.live) open_item(this, item);
        else this.refused(no_contact);
    }

    toggle() {
        const [input, output] = this.view.active_items();
        const connection = this.store.model.connection(input, output);
        return this.change(input, output, connection === undefined ? {invert: false} : undefined);
    }

    invert() {
        const [input, output] = this.view.active_items();
        if (input === undefined || output === undefined) return;
        const connection = this.store.model.connection(input, output);
        if (connection === undefined)
            this.refused(`${pair(input, output)} is not connected. Connect it first (Space), then invert.`);
        else if (connection.locked) this.refused(invert_is_fixed(input, output));
        else this.change(input, output, {invert: !connection.invert});
    }

    remove() {
        const [input, output] = this.view.active_items();
        if (!this.live) this.refused(no_contact);
        else if (input === undefined || output === undefined) remove_item(this, input ?? output);
        else if (this.store.model.connection(input, output) !== undefined) this.change(input, output, undefined);
    }

    async change(input, output, wanted) {
        if (!this.live) return this.refused(no_contact);
        const key = connection_key(input.key, output.key);
        if (this.view.pending.has(key)) return;
        const before = this.connection_at(key);
        this.view.set_pending(key, true);
        const refused = await set_connection(this.store, input, output, wanted);
        this.view.set_pending(key, false);
        this.show_inspector();
        if (refused !== null) return this.refused(refused);
        this.done({
            text: `${words_of_change(before, wanted)} ${pair(input, output)}`,
            still_so: () => this.connection_at(key)?.invert === wanted?.invert,
            undo: () => set_connection(this.store, input, output, before),
        });
    }

    connection_at(key) {
        const connection = this.store.model.connections.get(key);
        return connection === undefined ? undefined : {invert: connection.invert};
    }

    done(change) {
        this.history.add(change);
        const text = change.text[0].toUpperCase() + change.text.slice(1);
        say(text, {text: 'Undo', run: () => this.undo(change)});
    }

    refused(reason) {
        say_refused(reason);
    }

    // From a message only the change that it speaks of is undone, which may not be the last any more.
    async undo(change) {
        if (!this.live) return this.refused(no_contact);
        if (change !== undefined && this.history.last() !== change) return this.refused('Later changes have to be undone first.');
        const outcome = await this.history.undo_last();
        if (outcome === null) return;
        if (outcome.refused !== null) this.refused(outcome.refused);
        else say(`Undone: ${outcome.text}`);
    }

    async open_add(side) {
        if (this.live) await open_add(this, side);
    }

    help() {
        show_keys(() => this.return_focus());
    }

    go_to_filter() {
        by_id('filter_inputs').focus();
        by_id('filter_inputs').select();
    }

    filter_key(event) {
        if (event.key === 'Escape') {
            event.target.value = '';
            this.show_model();
        }
        if (event.key !== 'Escape' && event.key !== 'Enter') return;
        event.preventDefault();
        this.view.go_to(this.view.active.row, this.view.active.column);
    }

    // After a dialog the browser gives the focus back to an element that may not be there any more.
    return_focus() {
        if (document.activeElement === document.body && !by_id('grid').hidden)
            this.view.go_to(this.view.active.row, this.view.active.column);
    }

    // Shows an item that was added.
    reveal(key) {
        const row = this.view.down.place_of(key);
        const column = this.view.across.place_of(key);
        if (row < 0 && column < 0) return;
        this.was_used = true;
        this.view.go_to(row >= 0 ? row : this.view.active.row, column >= 0 ? column : this.view.active.column);
    }
}

function words_of_change(before, wanted) {
    if (wanted === undefined) return 'disconnected';
    if (before === undefined) return 'connected';
    return wanted.invert ? 'inverted' : 'no longer inverted:';
}

new GridPage();
