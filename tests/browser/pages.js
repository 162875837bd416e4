// The browser, its pages, and what a test looks for in them.
import {chromium} from 'playwright-core';
import {expect, until} from './support.js';

const executable = '/usr/bin/chromium';

// No name is looked up: the browser would ask for its maker's hosts.
export function launch() {
    return chromium.launch({
        executablePath: executable,
        headless: true,
        args: ['--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1, EXCLUDE 127.0.0.2, EXCLUDE 127.0.0.3'],
    });
}

// Everything that any page complains about, over all parts.
export const complaints = [];

// The browser reports each status above 399 as an error of its own. 501 is how the unit answers when an input is connected to a
// handler.
const is_expected = (text, url) => /status of 501/.test(text) && /\/cgi\/gpio(Conn|Grid)\.cgi/.test(url);

// expected: what the part provokes, as a pattern; a part that ends the unit sees refused connections.
export const lost_connections = /net::ERR_/;
export async function open_page(browser, url, {expected = /$^/, ...options} = {}) {
    const context = await browser.newContext({viewport: {width: 1280, height: 800}, ...options});
    const page = await context.newPage();
    page.setDefaultTimeout(20000);
    page.on('console', (message) => {
        if (!['error', 'warning'].includes(message.type())) return;
        const {url: from} = message.location();
        if (!is_expected(message.text(), from) && !expected.test(message.text())) complaints.push(`${message.text()} (${from})`);
    });
    page.on('pageerror', (error) => complaints.push(error.stack));
    await page.goto(url);
    await is_live(page);
    return page;
}

export const is_live = (page) => page.waitForFunction(() => document.getElementById('contact').textContent === 'Live');
export const is_stale = (page) => page.waitForFunction(() => document.getElementById('contact').textContent === 'Stale');

const quoted = (text) => JSON.stringify(text);

export const cell = (page, input, output) => page.locator(`[role=gridcell][aria-label^=${quoted(`${input} to ${output}, `)}]`);
export const row = (page, name) => page.locator(`[role=rowheader][aria-label^=${quoted(`${name}, `)}]`);
export const column = (page, name) => page.locator(`[role=columnheader][aria-label^=${quoted(`${name}, `)}]`);

// Until a cell's label says this behind the names.
export async function cell_says(page, input, output, words) {
    const label = `${input} to ${output}, ${words}`;
    await until(
        async () => (await page.locator(`[role=gridcell][aria-label=${quoted(label)}]`).count()) === 1,
        `the cell "${label}", which says: ${await cell(page, input, output)
            .getAttribute('aria-label')
            .catch(() => 'nothing')}`
    );
}

export async function header_says(header, words) {
    await until(async () => (await header.getAttribute('aria-label'))?.endsWith(`, ${words}`), `a header that says "${words}"`);
}

export async function message_says(page, text) {
    await page.locator('#toasts .toast', {hasText: text}).first().waitFor();
}

export async function no_refusal(page) {
    expect(
        (await page.locator('#toasts .toast.failed').count()) === 0,
        `something was refused: ${await page.locator('#toasts').textContent()}`
    );
}

export const dialog = (page) => page.locator('dialog[open]').last();
// A radio button of the dialog by the word it begins with; what it means follows.
export const option = (page, word) => dialog(page).getByRole('radio', {name: new RegExp(`^${word}`)});
export const dialog_closes = (page) => page.waitForFunction(() => document.querySelector('dialog[open]') === null);
export const active_label = (page) =>
    page.evaluate(() => document.activeElement?.getAttribute('aria-label') ?? document.activeElement?.id ?? '');
