// Building elements. Whatever comes from the unit or the network goes in as text nodes and attribute values only, so that a name
// which looks like markup stays a name.

// make('button', {class: 'quiet', type: 'button'}, 'Undo'): `true` sets an empty attribute, null and false leave it out.
export function make(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) set_attribute(element, name, value);
    element.append(...children.filter((child) => child !== null && child !== undefined));
    return element;
}

// Writes only what differs: an attribute that is set anew makes the browser style the element again.
export function set_attribute(element, name, value) {
    if (value === null || value === undefined || value === false) {
        if (element.hasAttribute(name)) element.removeAttribute(name);
        return;
    }
    const text = value === true ? '' : String(value);
    if (element.getAttribute(name) !== text) element.setAttribute(name, text);
}

export function set_text(element, text) {
    if (element.textContent !== text) element.textContent = text;
}

export function by_id(id) {
    return document.getElementById(id);
}

// "3 connections", "1 connection"
export function counted(count, noun) {
    return `${count} ${noun}${count === 1 ? '' : 's'}`;
}
