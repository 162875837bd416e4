// Everything by keyboard alone: one tab stop in the grid, arrows within it.
import {check, equal, expect, set_up, small_unit, Unit, until} from './support.js';
import {active_label, cell_says, column, dialog, dialog_closes, open_page, option, row} from './pages.js';

export async function keyboard({browser, programs}) {
    const unit = await new Unit(programs, small_unit).start();
    await set_up(unit);
    const page = await open_page(browser, unit.url);
    const keys = async (...names) => {
        for (const name of names) await page.keyboard.press(name);
    };
    const at = async (start) =>
        until(
            async () => (await active_label(page)).startsWith(start),
            `the focus on "${start}"; it is on "${await active_label(page)}"`
        );

    await check('the grid is one tab stop', async () => {
        const stops = [];
        await page.evaluate(() => document.activeElement.blur());
        for (let i = 0; i < 16; i++) {
            await keys('Tab');
            stops.push(await page.evaluate(() => document.activeElement.closest('#grid') !== null));
        }
        equal(stops.filter(Boolean).length, 1, 'tab stops in the grid');
        equal(await page.locator('#grid [tabindex="0"]').count(), 1, 'elements of the grid that Tab reaches');
    });

    await check('the way to the grid can be skipped', async () => {
        await page.reload();
        await page.locator('[role=gridcell]').first().waitFor();
        await keys('Tab');
        equal(await page.evaluate(() => document.activeElement.className), 'skip', 'the first tab stop');
        await keys('Enter');
        await at('On Air to Record');
    });

    await check('arrows, Home, End and Page keys move, and stop at the edges', async () => {
        await keys('ArrowRight', 'ArrowDown');
        await at('Talk to Play');
        equal(await page.locator('#about').textContent(), 'Talk \u2192 Play \u00b7 not connected', 'what is told of the cell');
        await keys('End');
        await at('Talk to Relay 2');
        await keys('ArrowRight');
        await at('Talk to Relay 2');
        await keys('Home');
        await at('Talk to Record');
        await keys('Control+End');
        await at('Physical Port 3 to Relay 2');
        await keys('ArrowDown');
        await at('Physical Port 3 to Relay 2');
        await keys('Control+Home');
        await at('On Air to Record');
        await keys('ArrowLeft');
        await at('On Air, event');
        await keys('ArrowUp');
        await at('On Air, event');
        await keys('ArrowRight', 'ArrowUp');
        await at('Record, handler');
        await keys('PageDown');
        await at('Physical Port 3 to Record');
    });

    await check('Space connects, I inverts, Delete disconnects, Ctrl Z undoes', async () => {
        await keys('Control+Home', ' ');
        await cell_says(page, 'On Air', 'Record', 'connected, off');
        await keys('i');
        await cell_says(page, 'On Air', 'Record', 'connected, inverted, on');
        await keys('Delete');
        await cell_says(page, 'On Air', 'Record', 'not connected');
        await at('On Air to Record');
        await keys('Control+z');
        await cell_says(page, 'On Air', 'Record', 'connected, inverted, on');
        await keys(' ');
        await cell_says(page, 'On Air', 'Record', 'not connected');
    });

    await check('/ filters, Enter goes back to the grid, Escape empties the filter', async () => {
        await keys('/');
        await page.keyboard.type('port 3');
        await until(async () => (await page.locator('[role=rowheader]').count()) === 1, 'one row');
        await keys('Enter');
        await at('Physical Port 3 to Record');
        await keys('/', 'Escape');
        await until(async () => (await page.locator('[role=rowheader]').count()) === 6, 'all rows');
        await at('Physical Port 3 to Record');
    });

    await check('? lists the keys, Escape closes the list and gives the focus back', async () => {
        await keys('?');
        await dialog(page).getByText('connect or disconnect').waitFor();
        await keys('Escape');
        await dialog_closes(page);
        await at('Physical Port 3 to Record');
    });

    await check('a port is turned round and removed by keyboard', async () => {
        await keys('Home', 'ArrowLeft');
        await at('Physical Port 3, ');
        await keys('Enter');
        await option(page, 'Output').waitFor();
        await until(async () => await page.evaluate(() => document.activeElement.type === 'radio'), 'the focus on the direction');
        await keys('ArrowDown', 'Enter');
        await dialog_closes(page);
        await column(page, 'Physical Port 3').waitFor();
        expect(
            (await unit.grid()).outputs.some((item) => item.name === 'Physical Port 3'),
            'the unit has no such output'
        );
        await column(page, 'Physical Port 3').focus();
        await keys('Delete');
        await column(page, 'Physical Port 3').waitFor({state: 'detached'});
        await until(
            async () => await page.evaluate(() => document.activeElement.closest('#grid') !== null),
            'the focus in the grid'
        );
    });

    await check('an input is added by keyboard and has the focus then', async () => {
        await page.locator('#add_input').focus();
        await keys('Enter');
        await dialog(page).getByPlaceholder('Filter').waitFor();
        await page.keyboard.type('physical port 6');
        await keys('Tab', ' ', 'Enter');
        await dialog_closes(page);
        await row(page, 'Physical Port 6').waitFor();
        await until(async () => (await active_label(page)).startsWith('Physical Port 6'), 'the focus on the added input');
    });
    await page.context().close();
    await unit.remove();
}
