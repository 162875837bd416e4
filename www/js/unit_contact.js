// The line at the top of both pages: which unit this is, and whether what is shown is live.
import {by_id, set_text} from './dom.js';

export function show_unit(unit, page_name) {
    const name = String(unit.friendly_name || unit.product_id || 'GPIO unit');
    set_text(by_id('unit_name'), name);
    by_id('unit_name').title = [unit.product_id, unit.serial, unit.version].filter(Boolean).join(' \u00b7 ');
    document.title = `${page_name} \u2013 ${name}`;
}

export function show_contact(live) {
    const contact = by_id('contact');
    set_text(contact, live ? 'Live' : 'Stale');
    contact.classList.toggle('stale', !live);
    by_id('stale_note').hidden = live;
    document.body.classList.toggle('is_stale', !live);
}
