// Draws the grid: only the rows and columns in the window (and those of the active cell) exist as elements, so that 40,000 cells
// scroll as easily as 40. One cell or header is active and can be focused; the headers count as row -1 and column -1.
import {Axis} from './axis.js';
import {make, set_attribute} from './dom.js';
import {
    arrange,
    fill_cell,
    fill_header,
    make_cell,
    make_column,
    make_line,
    make_row,
    make_strip,
    place_of,
} from './grid_cells.js';
import {connection_key} from './model.js';

const overscan_px = 120;

export class GridView {
    // root: the scrolling element with role "grid". calls: on_cell(input, output, event), on_item(item), on_active().
    constructor(root, calls) {
        this.root = root;
        this.calls = calls;
        this.rows = new Map();
        this.columns = new Map();
        this.lines = new Map();
        this.active = {row: 0, column: 0};
        this.pending = new Set();
        this.build();
        this.listen();
    }

    build() {
        this.canvas = make('div', {class: 'canvas'});
        this.column_groups = make('div', {class: 'column_groups', 'aria-hidden': 'true'});
        this.corner = make(
            'div',
            {class: 'corner', role: 'columnheader', 'aria-colindex': 1},
            make('span', {class: 'corner_outputs'}, 'Outputs \u2192'),
            make('span', {class: 'corner_inputs'}, 'Inputs \u2193')
        );
        this.head_row = make('div', {class: 'head_row', role: 'row', 'aria-rowindex': 1}, this.column_groups, this.corner);
        this.head = make('div', {class: 'head', role: 'rowgroup'}, this.head_row);
        this.row_groups = make('div', {class: 'row_groups', 'aria-hidden': 'true'});
        this.row_band = make('div', {class: 'band', 'aria-hidden': 'true', hidden: true});
        this.column_band = make('div', {class: 'band', 'aria-hidden': 'true', hidden: true});
        this.line_start = make('div', {hidden: true});
        const lines = make('div', {'aria-hidden': 'true'}, this.line_start);
        this.body = make('div', {class: 'body', role: 'rowgroup'}, lines, this.row_groups, this.row_band, this.column_band);
        this.canvas.append(this.head, this.body);
        this.root.append(this.canvas);
    }

    listen() {
        let waiting = false;
        const draw_soon = () => {
            if (waiting) return;
            waiting = true;
            requestAnimationFrame(() => {
                waiting = false;
                this.draw();
            });
        };
        this.root.addEventListener('scroll', draw_soon, {passive: true});
        new ResizeObserver(() => {
            if (this.measure()) this.lay_out();
            draw_soon();
        }).observe(this.root);
        this.root.addEventListener('click', (event) => this.clicked(event));
        this.root.addEventListener('pointerover', (event) => this.pointed(event));
        this.root.addEventListener(
            'pointerout',
            (event) => event.target.classList?.contains('cell') && set_attribute(event.target, 'title', null)
        );
        this.root.addEventListener('pointerleave', () => this.point_at(this.has_focus() ? this.active : null));
        this.root.addEventListener('focusin', (event) => this.focused(event));
        this.root.addEventListener('focusout', () => this.point_at(null));
        this.measure();
    }

    // Reads the sizes from the style sheet, which has others for fingers and for small windows. True if they changed.
    measure() {
        const style = getComputedStyle(this.root);
        const pixels = (name) => Number.parseFloat(style.getPropertyValue(name));
        const sizes = {
            cell: pixels('--cell'),
            row_head: pixels('--row_head'),
            column_head: pixels('--column_head'),
            group: pixels('--group'),
            gap: pixels('--gap'),
            group_name: pixels('--group_name'),
        };
        const changed = JSON.stringify(sizes) !== JSON.stringify(this.sizes);
        this.sizes = sizes;
        return changed;
    }

    // Shows these rows and columns of the model. The active cell stays with its items. As long as the same items are there, the same
    // elements stay, so that neither the focus nor what a screen reader is saying is lost by somebody else's change.
    show(model, inputs, outputs) {
        const [input, output] = this.active_items();
        const same = same_items(this.inputs, inputs) && same_items(this.outputs, outputs);
        this.model = model;
        this.inputs = inputs;
        this.outputs = outputs;
        if (!same) {
            this.lay_out();
            this.keep_active(input, output);
        }
        this.draw();
        this.refresh();
    }

    lay_out() {
        if (this.model === undefined) return;
        const {cell, group, gap, group_name, row_head, column_head} = this.sizes;
        this.across = new Axis(this.outputs, {size: cell, before: gap, least: group_name});
        this.down = new Axis(this.inputs, {size: cell, before: group});
        this.canvas.style.width = `${row_head + this.across.length}px`;
        this.head.style.height = `${column_head}px`;
        this.body.style.height = `${this.down.length}px`;
        set_attribute(this.root, 'aria-rowcount', this.inputs.length + 1);
        set_attribute(this.root, 'aria-colcount', this.outputs.length + 1);
        this.column_groups.replaceChildren(
            ...this.across.groups.map((each) => make_strip(each, 'left', row_head, each.end - each.start))
        );
        this.row_groups.replaceChildren(...this.down.groups.map((each) => make_strip(each, 'top', -group, null)));
        this.forget_drawn();
    }

    forget_drawn() {
        const focused = this.has_focus();
        for (const row of this.rows.values()) row.element.remove();
        for (const element of [...this.columns.values(), ...this.lines.values()]) element.remove();
        for (const drawn of [this.rows, this.columns, this.lines]) drawn.clear();
        this.drawn = '';
        this.refocus = focused;
    }

    keep_active(input, output) {
        const kept = (axis, item, before) => {
            if (item === undefined) return before < 0 ? -1 : Math.min(before, axis.items.length - 1);
            const place = axis.place_of(item.key);
            return place >= 0 ? place : Math.min(before, axis.items.length - 1);
        };
        this.active = {row: kept(this.down, input, this.active.row), column: kept(this.across, output, this.active.column)};
        if (this.active.row < 0 && this.active.column < 0) this.active = {row: Math.min(0, this.inputs.length - 1), column: 0};
        if (this.active.column >= this.outputs.length) this.active.column = this.outputs.length - 1;
    }

    // Input and output of the active cell; one of them is undefined on a header.
    active_items() {
        return [this.inputs?.[this.active.row], this.outputs?.[this.active.column]];
    }

    draw() {
        if (this.model === undefined) return;
        const rows = this.wanted(this.down, this.root.scrollTop, this.root.clientHeight, this.active.row);
        const columns = this.wanted(this.across, this.root.scrollLeft, this.root.clientWidth, this.active.column);
        const drawing = `${rows}/${columns}`;
        if (drawing === this.drawn) return;
        this.drawn = drawing;
        arrange(this.corner, this.columns, columns, (place) => this.add_column(place));
        arrange(this.line_start, this.lines, columns, (place) => make_line(this.left_of(place) + this.sizes.cell - 1));
        const elements = new Map([...this.rows].map(([place, row]) => [place, row.element]));
        arrange(this.column_band, elements, rows, (place) => this.add_row(place));
        for (const place of this.rows.keys()) if (!elements.has(place)) this.rows.delete(place);
        for (const [place, row] of this.rows) arrange(row.head, row.cells, columns, (column) => this.add_cell(place, column));
        this.mark_active();
    }

    wanted(axis, scrolled, size, active) {
        const [first, last] = axis.window(scrolled - overscan_px, scrolled + size + overscan_px);
        const places = Array.from({length: Math.max(0, last - first)}, (_, i) => first + i);
        if (active >= 0 && active < first) places.unshift(active);
        if (active >= last && active < axis.items.length) places.push(active);
        return places;
    }

    left_of(column) {
        return this.sizes.row_head + this.across.offsets[column];
    }

    add_column(place) {
        const element = make_column(place, this.left_of(place));
        this.fill_column(element, place);
        return element;
    }

    add_row(place) {
        const row = make_row(place, this.down.offsets[place]);
        this.rows.set(place, row);
        this.fill_row_head(row.head, place);
        return row.element;
    }

    add_cell(row, column) {
        const element = make_cell(row, column, this.left_of(column));
        this.fill_cell(element, row, column);
        return element;
    }

    fill_column(element, place) {
        fill_header(element, this.outputs[place], this.pending.has(this.outputs[place].key));
    }

    fill_row_head(element, place) {
        fill_header(element, this.inputs[place], this.pending.has(this.inputs[place].key));
    }

    fill_cell(element, row, column) {
        const [input, output] = [this.inputs[row], this.outputs[column]];
        const key = connection_key(input.key, output.key);
        fill_cell(element, input, output, this.model.connections.get(key), this.pending.has(key));
    }

    refresh() {
        for (const [place, element] of this.columns) this.fill_column(element, place);
        for (const [place, row] of this.rows) this.refresh_row(place, row);
    }

    refresh_row(place, row) {
        this.fill_row_head(row.head, place);
        for (const [column, element] of row.cells) this.fill_cell(element, place, column);
    }

    // Draws these items' headers, and the rows of inputs, anew: what an input delivers changes with it.
    refresh_items(keys) {
        for (const key of keys) {
            const row = this.down.place_of(key);
            if (this.rows.has(row)) this.refresh_row(row, this.rows.get(row));
            const column = this.across.place_of(key);
            if (this.columns.has(column)) this.fill_column(this.columns.get(column), column);
        }
    }

    set_pending(key, pending) {
        if (pending) this.pending.add(key);
        else this.pending.delete(key);
        this.refresh();
    }

    element_at({row, column}) {
        if (row < 0) return this.columns.get(column);
        return column < 0 ? this.rows.get(row)?.head : this.rows.get(row)?.cells.get(column);
    }

    mark_active() {
        const element = this.element_at(this.active);
        if (this.active_element !== element) {
            if (this.active_element !== undefined) set_attribute(this.active_element, 'tabindex', -1);
            this.active_element = element;
        }
        if (element === undefined) return;
        set_attribute(element, 'tabindex', 0);
        if (this.refocus) element.focus({preventScroll: true});
        this.refocus = false;
    }

    has_focus() {
        return this.root.contains(document.activeElement);
    }

    // Goes to a place, kept within the grid; the corner between the headers is none.
    go_to(row, column) {
        const place = {row: clamp(row, -1, this.inputs.length - 1), column: clamp(column, -1, this.outputs.length - 1)};
        if (place.row < 0 && place.column < 0) return;
        this.active = place;
        this.scroll_to(place);
        this.draw();
        this.mark_active();
        this.element_at(place)?.focus({preventScroll: true});
    }

    scroll_to({row, column}) {
        const {cell, row_head, column_head, group, gap} = this.sizes;
        const top = row < 0 ? this.root.scrollTop : this.down.offsets[row] - group;
        const left = column < 0 ? this.root.scrollLeft : this.across.offsets[column] - gap;
        const height = this.root.clientHeight - column_head - group - cell;
        const width = this.root.clientWidth - row_head - gap - cell;
        this.root.scrollTo(clamp(this.root.scrollLeft, left - width, left), clamp(this.root.scrollTop, top - height, top));
    }

    // How many rows a window holds, for paging.
    page() {
        return Math.max(1, Math.floor((this.root.clientHeight - this.sizes.column_head) / this.sizes.cell) - 1);
    }

    focused(event) {
        const place = place_of(event.target);
        if (place === null) return;
        this.active = place;
        this.mark_active();
        this.point_at(place);
        this.calls.on_active();
    }

    clicked(event) {
        const place = place_of(event.target);
        if (place === null) return;
        const was_active = this.active.row === place.row && this.active.column === place.column;
        this.go_to(place.row, place.column);
        this.act(event, was_active);
    }

    // What a click, Space or Enter does at the active place.
    act(event, was_active = true) {
        const [input, output] = this.active_items();
        if (input !== undefined && output !== undefined) this.calls.on_cell(input, output, event, was_active);
        else if (input !== undefined || output !== undefined) this.calls.on_item(input ?? output);
    }

    // Only the cell under the pointer has a tooltip; giving each one would double the text of the page.
    pointed(event) {
        const place = place_of(event.target);
        this.point_at(place);
        if (event.target.classList.contains('cell'))
            set_attribute(event.target, 'title', event.target.getAttribute('aria-label'));
    }

    // Highlights the row and the column of a place; null for none.
    point_at(place) {
        const {cell, row_head} = this.sizes;
        const row = place?.row ?? -1;
        const column = place?.column ?? -1;
        this.row_band.hidden = row < 0;
        this.column_band.hidden = column < 0;
        if (row >= 0)
            Object.assign(this.row_band.style, {top: `${this.down.offsets[row]}px`, left: 0, height: `${cell}px`, width: '100%'});
        if (column >= 0)
            Object.assign(this.column_band.style, {
                left: `${row_head + this.across.offsets[column]}px`,
                top: 0,
                width: `${cell}px`,
                height: '100%',
            });
        for (const [index, entry] of this.rows) entry.head.classList.toggle('pointed', index === row);
        for (const [index, entry] of this.columns) entry.classList.toggle('pointed', index === column);
    }
}

function clamp(value, low, high) {
    return Math.max(low, Math.min(high, value));
}

function same_items(before, now) {
    return before?.length === now.length && before.every((item, i) => item.key === now[i].key && item.group === now[i].group);
}
