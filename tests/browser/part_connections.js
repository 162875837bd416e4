// Connecting, inverting, disconnecting, undoing; what the unit refuses and what only looks like a refusal.
import {check, equal, expect, set_up, small_unit, Unit, until} from './support.js';
import {cell, cell_says, column, header_says, message_says, no_refusal, open_page, row} from './pages.js';

export async function connections({browser, programs}) {
    const unit = await new Unit(programs, small_unit).start();
    await set_up(unit);
    const page = await open_page(browser, unit.url);
    const has = async (expected) => equal(await unit.connections(), expected, 'what the unit has connected');

    await check('a click connects, another one disconnects', async () => {
        await cell(page, 'On Air', 'Relay 1').click();
        await cell_says(page, 'On Air', 'Relay 1', 'connected, off');
        await has(['On Air>Relay 1']);
        await message_says(page, 'Connected On Air → Relay 1');
        await cell(page, 'On Air', 'Relay 1').click();
        await cell_says(page, 'On Air', 'Relay 1', 'not connected');
        await has([]);
    });

    await check('a double click connects once', async () => {
        await cell(page, 'Talk', 'Relay 2').dblclick({delay: 200});
        await cell_says(page, 'Talk', 'Relay 2', 'connected, off');
        await has(['Talk>Relay 2']);
        await cell(page, 'Talk', 'Relay 2').click();
        await cell_says(page, 'Talk', 'Relay 2', 'not connected');
    });

    await check('an input that is connected to a handler is no error, although it is answered like one', async () => {
        await cell(page, 'Physical Port 1', 'Record').click();
        await cell_says(page, 'Physical Port 1', 'Record', 'connected, off');
        await message_says(page, 'Connected Physical Port 1 → Record');
        await has(['Physical Port 1>Record']);
        await no_refusal(page);
    });

    await check('the I key and the button invert, and the delivered state turns over', async () => {
        await cell(page, 'Physical Port 1', 'Record').focus();
        await page.keyboard.press('i');
        await cell_says(page, 'Physical Port 1', 'Record', 'connected, inverted, on');
        await has(['!Physical Port 1>Record']);
        await header_says(column(page, 'Record'), 'handler, on');
        await page.locator('#invert_cell').click();
        await cell_says(page, 'Physical Port 1', 'Record', 'connected, off');
        await has(['Physical Port 1>Record']);
    });

    await check('an input drives an output port', async () => {
        await cell(page, 'Physical Port 2', 'Physical Port 4').click();
        await cell_says(page, 'Physical Port 2', 'Physical Port 4', 'connected, off');
        await has(['Physical Port 1>Record', 'Physical Port 2>Physical Port 4']);
        await no_refusal(page);
    });

    await check('connections both ways between two names have a fixed invert, and the page says why', async () => {
        await cell(page, 'Listen', 'Talk').click();
        await cell_says(page, 'Listen', 'Talk', 'connected, off');
        await cell(page, 'Talk', 'Listen').click();
        await cell_says(page, 'Talk', 'Listen', 'connected, invert fixed, off');
        await cell_says(page, 'Listen', 'Talk', 'connected, invert fixed, off');
        await page.keyboard.press('i');
        await message_says(page, 'is fixed: the connection the other way round exists as well');
        expect(await page.locator('#invert_cell').isDisabled(), 'the invert of a fixed connection is offered');
        await has(['Listen>Talk', 'Physical Port 1>Record', 'Physical Port 2>Physical Port 4', 'Talk>Listen']);
    });

    await check('undo takes the last changes back, one after the other', async () => {
        await page.locator('#undo').click();
        await cell_says(page, 'Talk', 'Listen', 'not connected');
        await page.keyboard.press('Control+z');
        await cell_says(page, 'Listen', 'Talk', 'not connected');
        await page.keyboard.press('Control+z');
        await cell_says(page, 'Physical Port 2', 'Physical Port 4', 'not connected');
        await page.keyboard.press('Control+z');
        await cell_says(page, 'Physical Port 1', 'Record', 'connected, inverted, on');
        await has(['!Physical Port 1>Record']);
    });

    await check('what somebody else changed since is not undone', async () => {
        await cell(page, 'On Air', 'Relay 2').click();
        await cell_says(page, 'On Air', 'Relay 2', 'connected, off');
        await message_says(page, 'Connected On Air → Relay 2');
        await unit.control('connect', 'On Air', 'Relay 2', '--invert');
        await cell_says(page, 'On Air', 'Relay 2', 'connected, inverted, on');
        await page.locator('#undo').click();
        await message_says(page, 'somebody else has changed it since');
        await has(['!On Air>Relay 2', '!Physical Port 1>Record']);
    });

    await check('a connection that the unit refuses is told where it was tried', async () => {
        const refuse = (route) => route.fulfill({status: 501, body: ''});
        await page.route('**/cgi/gpioConn.cgi', refuse);
        await cell(page, 'On Air', 'Record').click();
        await message_says(page, 'The unit did not connect On Air → Record');
        await page.unroute('**/cgi/gpioConn.cgi', refuse);
        await cell_says(page, 'On Air', 'Record', 'not connected');
    });

    await check('the row and the column of the pointed cell are highlighted', async () => {
        await cell(page, 'Talk', 'Relay 1').hover();
        await until(
            async () =>
                (await page.locator('.row_head.pointed').count()) === 1 && (await page.locator('.column.pointed').count()) === 1,
            'one highlighted row and column'
        );
        expect(
            await row(page, 'Talk').evaluate((element) => element.classList.contains('pointed')),
            'another row is highlighted'
        );
        expect(
            await column(page, 'Relay 1').evaluate((element) => element.classList.contains('pointed')),
            'another column is highlighted'
        );
    });

    await check('filters leave what matches, and connected items alone on request', async () => {
        const rows = () => page.locator('[role=rowheader]').count();
        await page.locator('#filter_inputs').fill('port 2');
        await until(async () => (await rows()) === 1, 'one row');
        await page.locator('#filter_outputs').fill('relay');
        await until(async () => (await page.locator('.column').count()) === 2, 'two columns');
        await page.locator('#filter_inputs').fill('nothing has this name');
        await page.getByText('Nothing matches the filter').waitFor();
        await page.getByText('Show everything').click();
        await page.locator('#connected_only').check();
        await until(async () => (await rows()) === 2, 'the two rows with connections');
        await page.locator('#connected_only').uncheck();
        await until(async () => (await rows()) === 6, 'all rows');
    });

    await check('connections are still there after a restart of the unit', async () => {
        const before = await unit.connections();
        await page.context().close();
        await unit.stop();
        await unit.launch();
        equal(await unit.connections(), before, 'what the unit has connected');
    });
    await unit.remove();
}
