// Putting items on the grid and taking them off, and what ports are.
import {check, equal, expect, set_up, small_unit, Unit, until} from './support.js';
import {cell, cell_says, column, dialog, dialog_closes, header_says, message_says, open_page, option, row} from './pages.js';

const choice = (page, name) => dialog(page).getByRole('checkbox', {name, exact: true});

export async function items({browser, programs}) {
    const unit = await new Unit(programs, small_unit).start();
    const page = await open_page(browser, unit.url, {expected: /status of 403/});

    await check('an empty grid says what to do, and its button adds the first input', async () => {
        await page.getByText('The grid is empty').waitFor();
        await page.locator('#empty').getByText('Add input').click();
        await choice(page, 'On Air').check();
        await dialog(page).getByRole('button', {name: 'Add 1 input'}).click();
        await dialog_closes(page);
        await page.getByText('No outputs yet').waitFor();
        equal(
            (await unit.grid()).inputs.map((item) => item.name),
            ['On Air'],
            'inputs'
        );
    });

    await set_up(unit);

    await check('several ports are added at once, with the mode that is chosen for those that have a choice', async () => {
        await row(page, 'Physical Port 1').waitFor();
        await page.locator('#add_input').click();
        for (const name of ['Physical Port 5', 'User Button 1', 'Cough Port 2']) await choice(page, name).check();
        await option(page, 'Latching').check();
        await dialog(page).getByRole('button', {name: 'Add 3 inputs'}).click();
        await dialog_closes(page);
        await header_says(row(page, 'Physical Port 5'), 'Latching, off');
        await header_says(row(page, 'User Button 1'), 'Latching, off');
        await header_says(row(page, 'Cough Port 2'), 'Momentary, off');
        const modes = (await unit.grid()).inputs
            .filter((item) => ['Physical Port 5', 'Cough Port 2', 'User Button 1'].includes(item.name))
            .map((item) => item.input_mode);
        equal(modes, [0, 1, 0], 'input modes');
    });

    await check('relays, LEDs and virtual ports are added as outputs; cough ports and buttons are not offered', async () => {
        await page.locator('#add_output').click();
        for (const name of ['Relay 3', 'User LED 2', 'Virtual Port 1']) await choice(page, name).check();
        equal(
            await dialog(page)
                .getByText(/Cough Port|User Button/)
                .count(),
            0,
            'cough ports and buttons among the outputs'
        );
        await dialog(page).getByRole('button', {name: 'Add 3 outputs'}).click();
        await dialog_closes(page);
        for (const name of ['Relay 3', 'User LED 2', 'Virtual Port 1']) await column(page, name).waitFor();
        await page.locator('#add_input').click();
        await choice(page, 'Cough Port 1').waitFor();
        equal(
            await dialog(page)
                .getByText(/User LED/)
                .count(),
            0,
            'LEDs among the inputs'
        );
        await page.keyboard.press('Escape');
        await dialog_closes(page);
    });

    await check('an input becomes momentary', async () => {
        await row(page, 'Physical Port 5').click();
        await option(page, 'Momentary').check();
        await dialog(page).getByRole('button', {name: 'Apply'}).click();
        await dialog_closes(page);
        await header_says(row(page, 'Physical Port 5'), 'Momentary, off');
        await page.locator('#undo').click();
        await header_says(row(page, 'Physical Port 5'), 'Latching, off');
    });

    await check('turning a port round tells what is lost, and undo brings it back', async () => {
        await cell(page, 'Physical Port 1', 'Record').click();
        await cell_says(page, 'Physical Port 1', 'Record', 'connected, off');
        await cell(page, 'Physical Port 1', 'Relay 1').click();
        await cell_says(page, 'Physical Port 1', 'Relay 1', 'connected, off');
        await page.keyboard.press('i');
        await cell_says(page, 'Physical Port 1', 'Relay 1', 'connected, inverted, on');
        await row(page, 'Physical Port 1').click();
        await option(page, 'Output').check();
        await dialog(page).getByRole('button', {name: 'Apply and remove 2 connections'}).click();
        await dialog_closes(page);
        await column(page, 'Physical Port 1').waitFor();
        equal(await unit.connections(), [], 'connections');
        await page.locator('#undo').click();
        await cell_says(page, 'Physical Port 1', 'Relay 1', 'connected, inverted, on');
        await cell_says(page, 'Physical Port 1', 'Record', 'connected, off');
        equal(await unit.connections(), ['!Physical Port 1>Relay 1', 'Physical Port 1>Record'], 'connections');
    });

    await check('an output that becomes an input leaves the events that drove it to the others', async () => {
        for (const output of ['Physical Port 4', 'Relay 2']) {
            await cell(page, 'On Air', output).click();
            await cell_says(page, 'On Air', output, 'connected, off');
        }
        await unit.control('event', 'On Air', 'on');
        await cell_says(page, 'On Air', 'Relay 2', 'connected, on');
        await column(page, 'Physical Port 4').click();
        await option(page, 'Input').check();
        await dialog(page).getByRole('button', {name: 'Apply and remove 1 connection'}).click();
        await dialog_closes(page);
        await row(page, 'Physical Port 4').waitFor();
        await cell_says(page, 'On Air', 'Relay 2', 'connected, on');
        await header_says(column(page, 'Relay 2'), 'on');
        await unit.control('event', 'On Air', 'off');
        await header_says(column(page, 'Relay 2'), 'off');
    });

    await check('a cough port cannot be made an output', async () => {
        await page.locator('#add_input').click();
        await choice(page, 'Cough Port 1').check();
        await dialog(page).getByRole('button', {name: 'Add 1 input'}).click();
        await dialog_closes(page);
        await row(page, 'Cough Port 1').click();
        await dialog(page).getByText('A cough port is always an input.').waitFor();
        equal(await option(page, 'Output').count(), 0, 'offers of an output');
        await page.keyboard.press('Escape');
        await dialog_closes(page);
    });

    await check('an item with connections is removed only after a question', async () => {
        await row(page, 'Physical Port 1').click();
        await dialog(page).getByRole('button', {name: 'Remove from the grid'}).click();
        await page.getByText('Remove Physical Port 1?').waitFor();
        await dialog(page).getByText('Physical Port 1 → Relay 1, inverted').waitFor();
        await dialog(page).getByRole('button', {name: 'Keep'}).click();
        await dialog(page).getByRole('button', {name: 'Cancel'}).click();
        await dialog_closes(page);
        equal((await unit.connections()).length, 3, 'number of connections');
        await row(page, 'Physical Port 1').click();
        await dialog(page).getByRole('button', {name: 'Remove from the grid'}).click();
        await dialog(page).getByRole('button', {name: 'Remove', exact: true}).click();
        await dialog_closes(page);
        await row(page, 'Physical Port 1').waitFor({state: 'detached'});
        equal(await unit.connections(), ['On Air>Relay 2'], 'connections');
    });

    await check('undo of a removal brings the item and its connections back', async () => {
        await page.locator('#undo').click();
        await cell_says(page, 'Physical Port 1', 'Relay 1', 'connected, inverted, on');
        equal(await unit.connections(), ['!Physical Port 1>Relay 1', 'On Air>Relay 2', 'Physical Port 1>Record'], 'connections');
        await header_says(row(page, 'Physical Port 1'), 'Momentary, off');
    });

    await check('events, handlers and relays are removed and come back', async () => {
        for (const header of [row(page, 'On Air'), column(page, 'Record'), column(page, 'Relay 2')]) {
            await header.focus();
            await page.keyboard.press('Delete');
            const question = dialog(page).getByRole('button', {name: 'Remove', exact: true});
            await Promise.race([question.waitFor(), header.waitFor({state: 'detached'})]);
            if ((await question.count()) > 0) await question.click();
            await header.waitFor({state: 'detached'});
        }
        const grid = await unit.grid();
        expect(!grid.inputs.some((item) => item.name === 'On Air'), 'On Air is still there');
        expect(!grid.outputs.some((item) => item.name === 'Record' || item.name === 'Relay 2'), 'an output is still there');
        for (const back of [column(page, 'Relay 2'), column(page, 'Record'), row(page, 'On Air')]) {
            await page.keyboard.press('Control+z');
            await back.waitFor();
        }
        await until(async () => (await unit.connections()).length === 3, 'all connections again').catch(async () => {
            throw new Error(`connections are ${await unit.connections()}`);
        });
    });

    await check('a connection from a port that is no input any more is told at its output and can be taken away', async () => {
        await unit.control('set-port', 'GPI 6', 'input', '--mode', 'momentary');
        await unit.control('connect', 'GPI 6', 'Relay 3', '--invert');
        await cell_says(page, 'Physical Port 6', 'Relay 3', 'connected, inverted, on');
        await unit.control('set-port', 'GPI 6', 'output');
        await column(page, 'Physical Port 6').waitFor();
        await header_says(column(page, 'Relay 3'), 'on');
        await column(page, 'Relay 3').click();
        await dialog(page).getByText('Physical Port 6, connected, inverted, on').waitFor();
        await dialog(page).getByRole('button', {name: 'Disconnect'}).click();
        await until(async () => (await dialog(page).getByText('Physical Port 6').count()) === 0, 'the connection to go');
        await page.keyboard.press('Escape');
        await dialog_closes(page);
        await header_says(column(page, 'Relay 3'), 'off');
    });

    await check('a refusal is shown in the dialog where it happened', async () => {
        const refuse = (route) =>
            route.request().method() === 'POST' ? route.fulfill({status: 501, body: '{}'}) : route.continue();
        await page.route('**/cgi/gpioGrid.cgi**', refuse);
        await row(page, 'Physical Port 5').click();
        await option(page, 'Output').check();
        await dialog(page).getByRole('button', {name: 'Apply'}).click();
        await dialog(page).getByText('The unit could not make Physical Port 5 an output').waitFor();
        await page.unroute('**/cgi/gpioGrid.cgi**', refuse);
        await page.keyboard.press('Escape');
        await dialog_closes(page);
        await row(page, 'Physical Port 5').waitFor();
    });

    await check('a change that the unit forbids is told with the reason', async () => {
        const forbid = (route) => route.fulfill({status: 403, contentType: 'text/plain', body: 'wrong origin\n'});
        await page.route('**/cgi/gpioConn.cgi', forbid);
        await cell(page, 'Physical Port 2', 'Relay 1').click();
        await message_says(page, 'takes changes only from its own pages');
        await page.unroute('**/cgi/gpioConn.cgi', forbid);
    });
    await page.context().close();
    await unit.remove();
}
