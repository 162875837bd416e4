// The elements of the grid: headers, cells, lines and the strips that name the groups, and what they show.
import {make, set_attribute, set_text} from './dom.js';
import {cell_label, item_label, on_off, setting_of, source_is_lost} from './words.js';

const long_name = 18;
const header_attributes = {'aria-haspopup': 'dialog', tabindex: -1};

// Every header and cell knows its place in the grid; the headers are row -1 and column -1.
function placed(element, row, column) {
    element.place = {row, column};
    return element;
}

export function place_of(target) {
    return target.closest?.('[role=gridcell], .row_head, .column')?.place ?? null;
}

export function make_column(place, left) {
    const element = make(
        'div',
        {class: 'column', role: 'columnheader', 'aria-colindex': place + 2, ...header_attributes},
        make('span', {class: 'name'}),
        make('span', {class: 'lamp'})
    );
    element.style.left = `${left}px`;
    return placed(element, -1, place);
}

export function make_row(place, top) {
    const names = make('span', {class: 'names'}, make('span', {class: 'name'}), make('span', {class: 'setting'}));
    const head = make(
        'div',
        {class: 'row_head', role: 'rowheader', 'aria-colindex': 1, ...header_attributes},
        names,
        make('span', {class: 'lamp'})
    );
    const element = make('div', {class: 'row', role: 'row', 'aria-rowindex': place + 2}, head);
    element.style.top = `${top}px`;
    return {element, head: placed(head, place, -1), cells: new Map()};
}

export function make_cell(row, column, left) {
    const element = make('div', {role: 'gridcell', 'aria-colindex': column + 2, tabindex: -1});
    element.style.left = `${left}px`;
    return placed(element, row, column);
}

export function make_line(left) {
    const line = make('div', {class: 'line'});
    line.style.left = `${left}px`;
    return line;
}

export function fill_header(element, item, pending) {
    const setting = setting_of(item);
    set_text(element.querySelector('.name'), item.name);
    if (element.classList.contains('row_head')) set_text(element.querySelector('.setting'), setting);
    set_text(element.querySelector('.lamp'), on_off(item.on));
    element.classList.toggle('on', item.on);
    element.classList.toggle('lost', source_is_lost(item));
    element.classList.toggle('pending', pending);
    set_attribute(element, 'aria-label', item_label(item));
    set_attribute(element, 'title', Math.max(item.name.length, setting.length) > long_name ? item_label(item) : null);
}

export function fill_cell(element, input, output, connection, pending) {
    const {invert = false, locked = false, on = false} = connection ?? {};
    const classes = {connected: connection !== undefined, inverted: invert, locked, on, pending};
    set_attribute(element, 'class', ['cell', ...Object.keys(classes).filter((name) => classes[name])].join(' '));
    const label = cell_label(input, output, connection);
    set_attribute(element, 'aria-label', label);
    if (element.hasAttribute('title')) set_attribute(element, 'title', label);
}

// A strip that names a group, along one direction of the grid; `length` null: as long as the grid is wide.
export function make_strip(group, edge, shift, length) {
    const strip = make('div', {class: 'group'}, make('span', {}, group.name));
    strip.style[edge] = `${group.start + shift}px`;
    if (length !== null) strip.style.width = `${length}px`;
    return strip;
}

// Makes the elements behind `anchor` exactly those of the wanted places, in ascending order. Elements that stay are not moved, so
// that one of them can hold the focus.
export function arrange(anchor, shown, wanted, create) {
    const keep = new Set(wanted);
    for (const [place, element] of shown) {
        if (keep.has(place)) continue;
        element.remove();
        shown.delete(place);
    }
    let next = anchor.nextSibling;
    for (const place of wanted) {
        const element = shown.get(place);
        if (element !== undefined && element === next) {
            next = next.nextSibling;
            continue;
        }
        const added = create(place);
        shown.set(place, added);
        anchor.parentNode.insertBefore(added, next);
    }
}
