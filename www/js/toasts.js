// Short messages at the lower edge of the page: what was done, with a way back, and what was refused, with the reason.
import {by_id, make} from './dom.js';

const shown_ms = 6000;
const refused_shown_ms = 12000;
const most = 4;

function show(classes, text, action, stay_ms) {
    const box = by_id('toasts');
    // Only the last change can be undone from its message.
    if (action !== undefined) for (const old of box.querySelectorAll('button')) old.remove();
    const toast = make('div', {class: classes}, make('span', {class: 'words'}, text));
    if (action !== undefined) {
        const button = make('button', {type: 'button'}, action.text);
        button.addEventListener('click', () => {
            toast.remove();
            action.run();
        });
        toast.append(button);
    }
    box.append(toast);
    while (box.children.length > most) box.firstElementChild.remove();
    // A message that is being read or whose button has the focus stays.
    const leave = () => (toast.matches(':hover, :focus-within') ? setTimeout(leave, 1000) : toast.remove());
    setTimeout(leave, stay_ms);
}

export const say = (text, action) => show('toast', text, action, shown_ms);
export const say_refused = (text) => show('toast failed', text, undefined, refused_shown_ms);
