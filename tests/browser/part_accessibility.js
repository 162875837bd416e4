// axe over every state of the pages, light and dark, wide and narrow.
import {readFileSync} from 'node:fs';
import {createRequire} from 'node:module';
import {check, equal, expect, set_up, small_unit, Unit} from './support.js';
import {cell, cell_says, column, dialog, is_stale, lost_connections, message_says, open_page, row} from './pages.js';

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const rules = ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa', 'best-practice'];

// What is still fading in has colours that are nobody's.
const come_to_rest = (page) =>
    page.evaluate(() => {
        const ending = document.getAnimations().filter((one) => one.effect.getComputedTiming().endTime !== Infinity);
        return Promise.all(ending.map((one) => one.finished.catch(() => null))).then(() => null);
    });

async function clean(page, what) {
    await come_to_rest(page);
    await page.evaluate(axe);
    const {violations, passes} = await page.evaluate((tags) => window.axe.run(document, {runOnly: tags}), rules);
    expect(passes.length > 10, `only ${passes.length} rules applied to ${what}`);
    const told = violations.map(
        (one) =>
            `${one.id}: ${one.help}: ${one.nodes
                .slice(0, 3)
                .map((node) => `${node.target} ${node.failureSummary}`)
                .join(' | ')}`
    );
    expect(violations.length === 0, `${what}: ${told.join('\n')}`);
}

// No part of the page reaches beyond the window.
async function fits(page) {
    const [wide, window_width] = await page.evaluate(() => [document.documentElement.scrollWidth, innerWidth]);
    expect(wide <= window_width, `the page is ${wide} wide in a window of ${window_width}`);
}

const appearances = [
    ['light', {colorScheme: 'light'}],
    ['dark', {colorScheme: 'dark'}],
    ['on a phone', {colorScheme: 'light', viewport: {width: 390, height: 780}, hasTouch: true, isMobile: true}],
    ['on a small phone, dark', {colorScheme: 'dark', viewport: {width: 320, height: 640}, hasTouch: true, isMobile: true}],
    ['on a phone held across', {colorScheme: 'dark', viewport: {width: 844, height: 390}, hasTouch: true, isMobile: true}],
];

// Names of ports that end in "...", and names of groups that run into the next one.
const unreadable = (page) =>
    page.evaluate(() => {
        const cut = [...document.querySelectorAll('[role=rowheader] .name')].filter((name) => name.scrollWidth > name.clientWidth);
        const groups = [...document.querySelectorAll('.column_groups .group span')];
        const box = (element) => element.getBoundingClientRect();
        const run_over = groups.filter((group, i) => i > 0 && box(groups[i - 1]).right > box(group).left);
        return [...cut, ...run_over].map((element) => element.textContent);
    });

async function look_at_grid(page, name) {
    await check(`names can be read ${name}`, async () => {
        await cell(page, 'Physical Port 2', 'Record').focus();
        equal(await unreadable(page), [], 'names that cannot be read');
    });
    await check(`the grid is accessible ${name}`, async () => {
        await fits(page);
        await clean(page, 'the grid');
        await cell(page, 'On Air', 'Record').focus();
        await cell(page, 'On Air', 'Record').click();
        await message_says(page, 'On Air → Record');
        await clean(page, 'the grid with a message');
    });
    await check(`the dialogs are accessible ${name}`, async () => {
        for (const open of ['#add_input', '#add_output', '#help']) {
            await page.locator(open).click();
            await dialog(page).waitFor();
            await fits(page);
            await clean(page, `the dialog of ${open}`);
            await page.keyboard.press('Escape');
        }
        for (const header of [row(page, 'Physical Port 1'), row(page, 'Virtual Port 1'), column(page, 'Relay 1')]) {
            await header.focus();
            await page.keyboard.press('Enter');
            await dialog(page).waitFor();
            await fits(page);
            await clean(page, 'the dialog of an item');
            await page.keyboard.press('Escape');
        }
    });
}

export async function accessibility({browser, programs}) {
    const unit = await new Unit(programs, small_unit).start();
    await check('the empty grid is accessible', async () => {
        const page = await open_page(browser, unit.url);
        await page.getByText('The grid is empty').waitFor();
        await clean(page, 'the empty grid');
        await page.context().close();
    });
    await set_up(unit);
    await unit.control('set-port', 'Virtual Port 1', 'input');
    for (const [input, output, ...invert] of [
        ['GPI 1', 'Record'],
        ['GPI 1', 'Relay 1', '--invert'],
        ['Talk', 'Listen'],
        ['Listen', 'Talk'],
    ]) {
        await unit.control('connect', input, output, ...invert);
    }
    for (const [name, options] of appearances) {
        const page = await open_page(browser, unit.url, options);
        await look_at_grid(page, name);
        await page.context().close();
        const panel = await open_page(browser, `${unit.url}/panel.html`, options);
        await check(`the panel is accessible ${name}`, async () => {
            await panel.getByText('Show pins that are not in use').click();
            await unit.control('pulse', '1');
            await panel.locator('#events li').first().waitFor();
            await fits(panel);
            await clean(panel, 'the panel');
        });
        await panel.context().close();
    }

    await check('a finger chooses a cell with the first tap and connects with the second', async () => {
        const page = await open_page(browser, unit.url, appearances[2][1]);
        await cell(page, 'Talk', 'Record').tap();
        await page.locator('#about', {hasText: 'Talk → Record'}).waitFor();
        await page.waitForTimeout(300);
        expect(!(await unit.connections()).includes('Talk>Record'), 'the first tap connected');
        await cell(page, 'Talk', 'Record').tap();
        await cell_says(page, 'Talk', 'Record', 'connected, off');
        await page.context().close();
    });

    await check('a stale page is accessible', async () => {
        const page = await open_page(browser, unit.url, {expected: lost_connections});
        await unit.stop();
        await is_stale(page);
        await clean(page, 'the stale grid');
        await page.context().close();
    });
    await unit.remove();
}
