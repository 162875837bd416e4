// As many rows and columns as a unit can have.
import {check, equal, expect, Unit, until} from './support.js';
import {active_label, cell, cell_says, open_page} from './pages.js';

const numbered = (count, word) => Array.from({length: count}, (_, i) => `${word} ${i + 1}`);
const upto = (count) => Array.from({length: count}, (_, i) => i).join(',');

// The longest pause between two frames while the grid is scrolled from one corner to the other, and how many frames it took.
function scroll_through(page) {
    return page.evaluate(
        () =>
            new Promise((resolve) => {
                const grid = document.getElementById('grid');
                const steps = 90;
                let step = 0;
                let before = performance.now();
                const gaps = [];
                const turn = () => {
                    const now = performance.now();
                    gaps.push(now - before);
                    before = now;
                    if (++step > steps) return resolve(gaps.slice(1).sort((a, b) => a - b));
                    grid.scrollTo((grid.scrollWidth * step) / steps, (grid.scrollHeight * step) / steps);
                    requestAnimationFrame(turn);
                };
                requestAnimationFrame(turn);
            })
    );
}

// Run in the page: nothing lies over the focused cell.
function in_sight() {
    const box = document.activeElement.getBoundingClientRect();
    return document.activeElement.contains(document.elementFromPoint(box.x + box.width / 2, box.y + box.height / 2));
}

export async function big({browser, programs}) {
    const settings = {
        friendly_name: 'Big',
        relays: {base_pin: 300, count: 10},
        handlers: numbered(200, 'Handler').map((name) => ({name})),
        triggers: numbered(195, 'Event'),
    };
    const unit = await new Unit(programs, settings).start();
    await unit.post('/cgi/gpioGrid.cgi', {gpioType: 'event', gpioPort: upto(200), newState: 1});
    await unit.post('/cgi/gpioGrid.cgi', {gpioType: 'event', gpioPort: upto(200), newState: 2});
    await unit.post('/cgi/gpioGrid.cgi', {gpioType: 'relay', gpioPort: upto(10), newState: 2});
    for (let i = 1; i <= 190; i += 7) await unit.control('connect', `Event ${i}`, `Handler ${200 - i}`);
    const page = await open_page(browser, unit.url);
    const sizes = await page.evaluate(() =>
        ['aria-rowcount', 'aria-colcount'].map((name) => Number(document.getElementById('grid').getAttribute(name)) - 1)
    );

    await check('some 200 rows and 200 columns are there, and only those in the window are drawn', async () => {
        expect(sizes[0] >= 199 && sizes[1] >= 200, `the grid has ${sizes.join(' by ')} cells`);
        const drawn = await page.locator('[role=gridcell]').count();
        expect(drawn > 100 && drawn < 4000, `${drawn} cells are drawn`);
    });

    await check('the far corner is one key away and its cells say where they are', async () => {
        await cell(page, 'Event 1', 'Handler 1').focus();
        await page.keyboard.press('Control+End');
        await until(async () => (await active_label(page)).startsWith('Event 195 to Relay 10'), 'the last cell');
        const place = await page.evaluate(() =>
            [
                document.activeElement.parentElement.getAttribute('aria-rowindex'),
                document.activeElement.getAttribute('aria-colindex'),
            ].map(Number)
        );
        equal(place, [sizes[0] + 1, sizes[1] + 1], 'its indexes');
        expect(await page.evaluate(in_sight), 'the active cell is covered');
    });

    await check('a cell in the far corner is connected, and levels arrive there', async () => {
        await page.keyboard.press(' ');
        await cell_says(page, 'Event 195', 'Relay 10', 'connected, off');
        await unit.control('event', 'Event 195', 'on');
        await cell_says(page, 'Event 195', 'Relay 10', 'connected, on');
    });

    await check('the focus stays on its cell while the grid is scrolled away and back', async () => {
        await page.evaluate(() => document.getElementById('grid').scrollTo(0, 0));
        await cell(page, 'Event 1', 'Handler 1').waitFor();
        expect((await active_label(page)).startsWith('Event 195 to Relay 10'), `the focus is on "${await active_label(page)}"`);
        await page.keyboard.press('ArrowLeft');
        await until(async () => (await active_label(page)).startsWith('Event 195 to Relay 9'), 'the cell beside it');
    });

    await check('a cell that is reached with Tab is in sight, wherever the grid was scrolled to', async () => {
        await cell(page, 'Event 195', 'Relay 10').focus();
        await page.keyboard.press('Control+Home');
        await until(async () => (await active_label(page)).startsWith('Eth Link Down to Handler 1'), 'the first cell');
        for (const key of ['PageDown', 'PageDown', 'PageDown', ...Array(30).fill('ArrowRight')]) await page.keyboard.press(key);
        const active = await active_label(page);
        await page.locator('#add_output').focus();
        await page.evaluate(() => document.getElementById('grid').scrollTo(99999, 99999));
        for (let i = 0; i < 4 && (await active_label(page)) !== active; i++) await page.keyboard.press('Tab');
        equal(await active_label(page), active, 'the cell that Tab reaches');
        await until(() => page.evaluate(in_sight), 'the active cell in sight');
    });

    await check('rows and cells are drawn in their order wherever one has scrolled to', async () => {
        for (const [x, y] of [
            [3000, 500],
            [100, 6000],
            [2500, 2500],
            [0, 0],
            [9999, 9999],
            [1200, 3100],
        ]) {
            await page.evaluate(
                ([left, top]) =>
                    new Promise((resolve) => {
                        document.getElementById('grid').scrollTo(left, top);
                        requestAnimationFrame(() => requestAnimationFrame(resolve));
                    }),
                [x, y]
            );
            const orders = await page.evaluate(() => {
                const numbers = (elements, name) => [...elements].map((element) => Number(element.getAttribute(name)));
                const ascending = (list) => list.every((value, i) => i === 0 || value > list[i - 1]);
                const rows = [...document.querySelectorAll('.body [role=row]')];
                return [
                    ascending(numbers(rows, 'aria-rowindex')),
                    rows.every((row) => ascending(numbers(row.children, 'aria-colindex'))),
                    new Set(rows.map((row) => row.children.length)).size,
                ];
            });
            equal(orders, [true, true, 1], `the order at ${x}, ${y}`);
        }
    });

    await check('scrolling through it all draws everything on the way; the pauses are printed', async () => {
        const gaps = await scroll_through(page);
        expect(gaps.length === 90, `${gaps.length} frames`);
        console.log(
            `figure: scrolling through ${sizes.join(' by ')} cells: a frame takes ` +
                `${gaps[45].toFixed(1)} ms in the middle, ${gaps.at(-1).toFixed(1)} ms at most`
        );
        await cell(page, 'Event 195', 'Relay 10').waitFor();
    });

    await check('filters find one of many', async () => {
        await page.keyboard.press('/');
        await page.keyboard.type('event 113');
        await until(async () => (await page.locator('[role=rowheader]').count()) === 1, 'one row');
        await page.locator('#filter_outputs').fill('handler 87');
        await cell(page, 'Event 113', 'Handler 87').waitFor();
        await cell_says(page, 'Event 113', 'Handler 87', 'connected, off');
    });
    await page.context().close();
    await unit.remove();
}
