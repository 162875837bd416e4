// Putting items on the grid: everything that is not on it and can be what is wanted, grouped, with the settings an input needs.
import {get_free} from './api.js';
import {off_grid, place_items} from './changes.js';
import {counted, make} from './dom.js';
import {open_dialog, radio_value} from './dialogs.js';
import {mode_choice, source_choice} from './item_dialog.js';
import {input_groups, is_port, item_from, output_groups} from './model.js';
import {can_be_input, can_be_output, can_choose_mode, is_virtual} from './words.js';

const sides = {
    input: {kind: 0, events: 'triggers', groups: input_groups, fits: can_be_input},
    output: {kind: 1, events: 'handlers', groups: output_groups, fits: (item) => item.class === 'relay' || can_be_output(item)},
};

async function free_items(side) {
    const {kind, events, fits} = sides[side];
    const free = await get_free(kind);
    const ports = (free.gpio ?? []).map((entry) => item_from(entry, side)).filter(fits);
    const items = [...(free[events] ?? []).map((entry) => item_from(entry, side)), ...ports];
    return {items, sources: (free.vgpo_src_list ?? []).map((source) => String(source.name)).filter((name) => name !== '-')};
}

function choice(item) {
    const box = make('input', {type: 'checkbox', name: 'item', value: item.key});
    return make('label', {class: 'choice'}, box, make('span', {}, item.name));
}

function grouped_choices(items, groups) {
    const parts = groups.map((group) => {
        const members = items.filter((item) => item.group === group);
        return members.length === 0 ? null : make('fieldset', {}, make('legend', {}, group), ...members.map(choice));
    });
    return make('div', {class: 'choices'}, ...parts);
}

class AddDialog {
    constructor(page, side) {
        this.page = page;
        this.side = side;
    }

    async open() {
        try {
            const {items, sources} = await free_items(this.side);
            this.items = new Map(items.map((item) => [item.key, item]));
            if (items.length === 0) this.open_empty();
            else this.open_with(items, sources);
        } catch (error) {
            this.page.refused(error.message);
        }
    }

    open_empty() {
        const content = [
            make(
                'p',
                {},
                `Everything that can be an ${this.side} is on the grid already. A port that is an ` +
                    `${this.side === 'input' ? 'output' : 'input'} now can be turned round: choose its name in the grid.`
            ),
        ];
        open_dialog({
            title: `Add ${this.side}s`,
            content,
            actions: [],
            close_text: 'Close',
            on_close: () => this.page.return_focus(),
        });
    }

    open_with(items, sources) {
        this.search = make('input', {
            type: 'search',
            placeholder: 'Filter',
            'aria-label': 'Filter the list',
            autocomplete: 'off',
            spellcheck: 'false',
        });
        this.list = grouped_choices(items, sides[this.side].groups);
        this.mode = mode_choice(1);
        this.source = source_choice(sources, '-');
        this.search.addEventListener('input', () => this.filter());
        this.frame = open_dialog({
            title: `Add ${this.side}s`,
            content: [this.search, this.list],
            pinned: [this.mode, this.source],
            actions: [{text: 'Add', kind: 'main', run: () => this.add()}],
            on_close: () => this.leave(),
        });
        this.frame.dialog.addEventListener('change', () => this.adapt());
        this.adapt();
        this.search.focus();
    }

    filter() {
        const wanted = this.search.value.trim().toLowerCase();
        for (const label of this.list.querySelectorAll('.choice'))
            label.hidden = !label.textContent.toLowerCase().includes(wanted);
        for (const group of this.list.children) group.hidden = group.querySelector('.choice:not([hidden])') === null;
    }

    chosen() {
        return [...this.list.querySelectorAll('input:checked')].map((box) => this.items.get(box.value));
    }

    adapt() {
        const chosen = this.chosen();
        const inputs = this.side === 'input' ? chosen.filter(is_port) : [];
        this.mode.hidden = !inputs.some(can_choose_mode);
        this.source.hidden = !inputs.some(is_virtual);
        const button = this.frame.button(0);
        button.textContent = chosen.length === 0 ? 'Add' : `Add ${counted(chosen.length, this.side)}`;
        button.disabled = chosen.length === 0;
    }

    async add() {
        const chosen = this.chosen();
        if (chosen.length === 0) return `Choose at least one ${this.side}.`;
        const placement = {
            side: this.side,
            mode: Number(radio_value(this.mode, 'mode')),
            source: this.source.querySelector('select').value,
        };
        const {store} = this.page;
        const refused = await place_items(store, chosen, placement);
        const placed = chosen.filter((item) => store.model.items.get(item.key)?.side === this.side);
        if (placed.length > 0) this.record(placed);
        for (const item of placed) this.list.querySelector(`input[value="${item.key}"]`).closest('label').remove();
        return refused ?? true;
    }

    // An item that has been connected since is not taken away again: more than the adding would be lost.
    record(placed) {
        const {store} = this.page;
        const untouched = (item) =>
            store.model.items.get(item.key)?.side === this.side && store.model.connections_of(item.key).length === 0;
        this.page.done({
            text: `added ${placed.length === 1 ? placed[0].name : counted(placed.length, this.side)}`,
            still_so: () => placed.every(untouched),
            undo: () => place_items(store, placed, off_grid),
        });
        this.first_placed = placed[0].key;
    }

    leave() {
        if (this.first_placed === undefined) this.page.return_focus();
        else this.page.reveal(this.first_placed);
    }
}

export function open_add(page, side) {
    return new AddDialog(page, side).open();
}
