// The keys of the grid page, and the list of them.
import {make} from './dom.js';
import {open_dialog} from './dialogs.js';

const listed = [
    ['Arrow keys', 'move from cell to cell, and on to the names of rows and columns'],
    ['Home, End', 'first and last cell of the row; with Ctrl of the grid'],
    ['Page Up, Page Down', 'a window up or down'],
    ['Space', 'connect or disconnect; on a name: its settings'],
    ['I', 'invert the connection'],
    ['Delete', 'disconnect; on a name: remove it from the grid'],
    ['/', 'filter'],
    ['Ctrl Z', 'undo the last change'],
    ['?', 'this list'],
    ['Escape', 'empty the filter, back to the grid'],
];

// Each sign with its words; the classes are those of the grid's cells.
const signs = [
    ['mark on', 'connected, on: the output is switched on through it'],
    ['mark', 'connected, off'],
    ['mark inverted on', 'inverted, on: the input is off'],
    ['mark inverted', 'inverted, off: the input is on'],
    ['mark locked', 'its invert is fixed, because the connection the other way round exists as well'],
];

export function show_keys(on_close) {
    const keys = make(
        'dl',
        {class: 'keys'},
        ...listed.flatMap(([key, words]) => [make('dt', {}, make('kbd', {}, key)), make('dd', {}, words)])
    );
    const meanings = make(
        'dl',
        {class: 'keys'},
        ...signs.flatMap(([sign, words]) => [make('dt', {}, make('span', {class: sign})), make('dd', {}, words)])
    );
    const touch = make(
        'p',
        {class: 'hint'},
        'On a touch screen the first tap chooses a cell, the second one connects or disconnects it.'
    );
    open_dialog({
        title: 'Keys and signs',
        content: [keys, make('p', {class: 'label'}, 'Signs'), meanings, touch],
        actions: [],
        close_text: 'Close',
        on_close,
    });
}

// Where each key goes from a place (row, column) of the view; the rest stays with the browser.
const moves = {
    ArrowUp: (view, {row, column}) => [row - 1, column],
    ArrowDown: (view, {row, column}) => [row + 1, column],
    ArrowLeft: (view, {row, column}) => [row, column - 1],
    ArrowRight: (view, {row, column}) => [row, column + 1],
    PageUp: (view, {row, column}) => [Math.max(0, row - view.page()), column],
    PageDown: (view, {row, column}) => [row + view.page(), column],
    Home: (view, {row, column}, ctrl) => (ctrl ? [0, 0] : [row, row < 0 ? 0 : Math.min(column, 0)]),
    End: (view, {row}, ctrl) => [ctrl ? Infinity : row, Infinity],
};

export function handle_grid_key(event, page) {
    const {view} = page;
    if (event.altKey || event.metaKey) return;
    const move = moves[event.key];
    const act = {' ': 'act', Enter: 'act', i: 'invert', I: 'invert', Delete: 'remove', Backspace: 'remove'}[event.key];
    if (move === undefined && (act === undefined || event.ctrlKey)) return;
    page.use();
    if (move !== undefined) view.go_to(...move(view, view.active, event.ctrlKey));
    else if (act === 'act') view.act(event);
    else page[act]();
    event.preventDefault();
}

const types_text = (element) => element.matches?.('input[type=search], select, textarea');

export function handle_page_key(event, page) {
    if (document.querySelector('dialog[open]') !== null || event.altKey) return;
    if ((event.ctrlKey || event.metaKey) && event.key === 'z' && !types_text(event.target)) page.undo();
    else if (event.ctrlKey || event.metaKey || types_text(event.target)) return;
    else if (event.key === '/') page.go_to_filter();
    else if (event.key === '?') page.help();
    else return;
    event.preventDefault();
}
