// The frame of every dialog. The browser keeps the focus inside, closes it with Escape and gives the focus back.
import {make} from './dom.js';

// content: elements, which scroll if they are many; pinned: those that stay in sight.
// actions: [{text, kind: 'main' | 'danger' | '', left, run()}]; `run` returns true to close, or the reason why not, which is
// shown where it happened. The dialog has one more button, which only closes it.
let opened = 0;

export function open_dialog({title, content, pinned = [], actions, close_text = 'Cancel', on_close = () => {}}) {
    const refusal = make('p', {class: 'refused', role: 'alert'});
    const close = make('button', {type: 'button'}, close_text);
    const title_id = `dialog_title_${++opened}`;
    const dialog = make('dialog', {'aria-labelledby': title_id}, make('header', {}, make('h2', {id: title_id}, title)));
    const footer = make('footer', {});
    const buttons = actions.map((action) => action_button(dialog, action, refusal));
    footer.append(...buttons.filter((_, i) => actions[i].left), close, ...buttons.filter((_, i) => !actions[i].left));
    const body = make('div', {class: 'content'}, ...content);
    const form = make('form', {novalidate: true}, body, make('div', {class: 'pinned'}, ...pinned, refusal), footer);
    // Content without fields can be scrolled by keyboard all the same; the focus begins at the harmless button then.
    if (body.querySelector('input, select, button') === null) {
        body.tabIndex = 0;
        close.autofocus = true;
    }
    form.addEventListener('submit', (event) => event.preventDefault());
    dialog.append(form);
    close.addEventListener('click', () => dialog.close());
    dialog.addEventListener('close', () => {
        dialog.remove();
        on_close();
    });
    document.body.append(dialog);
    dialog.showModal();
    return {
        dialog,
        refuse: (reason) => {
            refusal.textContent = reason;
        },
        button: (i) => buttons[i],
        close: () => dialog.close(),
    };
}

function action_button(dialog, {text, kind = '', left = false, run}, refusal) {
    // Enter in a field chooses the first button that submits.
    const button = make('button', {type: kind === 'main' ? 'submit' : 'button', class: `${kind}${left ? ' left' : ''}`}, text);
    button.addEventListener('click', async () => {
        button.disabled = true;
        refusal.textContent = '';
        const outcome = await run();
        button.disabled = false;
        if (outcome === true) dialog.close();
        else if (typeof outcome === 'string') refusal.textContent = outcome;
    });
    return button;
}

// Resolves to whether the question was answered with the action.
export function ask({title, content, action, close_text}) {
    return new Promise((resolve) => {
        let agreed = false;
        open_dialog({
            title,
            content,
            close_text,
            actions: [{text: action, kind: 'danger', run: async () => (agreed = true)}],
            on_close: () => resolve(agreed),
        });
    });
}

export function radio(name, value, checked, text, help = '') {
    const input = make('input', {type: 'radio', name, value, checked});
    return make(
        'label',
        {class: 'option'},
        input,
        make('span', {}, text, help === '' ? '' : make('small', {}, ` \u2013 ${help}`))
    );
}

export function radio_value(element, name) {
    return element.querySelector(`input[name="${name}"]:checked`)?.value;
}
