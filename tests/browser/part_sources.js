// A virtual input takes its source from a second unit, found over the network.
import {check, equal, small_unit, Unit, until} from './support.js';
import {cell, cell_says, dialog, dialog_closes, header_says, open_page, row} from './pages.js';

const image = '<img src=x onerror=window.hit=1>';

export async function sources({browser, programs}) {
    const studio = await new Unit(programs, {...small_unit, friendly_name: 'Studio A', interface: 'lo'}, '127.0.0.2').start(
        '--with-daemons'
    );
    const other = await new Unit(programs, {...small_unit, friendly_name: image, interface: 'lo'}, '127.0.0.3').start(
        '--with-daemons'
    );
    await other.control('set-port', 'GPI 1', 'input', '--mode', 'momentary');
    await other.control('set-port', 'Virtual Port 1', 'output');
    await other.control('connect', 'GPI 1', 'vGPO 1');
    await studio.control('connect', 'On Air', 'Relay 1');
    const source = `vGPO1@${image}`;
    const page = await open_page(browser, studio.url);

    await check('a virtual port follows the output of another unit that is chosen in the page', async () => {
        await until(async () => (await studio.grid()).vgpo_src_list.some(({name}) => name === source), "the other unit's output");
        await page.locator('#add_input').click();
        await dialog(page).getByRole('checkbox', {name: 'Virtual Port 2', exact: true}).check();
        await dialog(page).locator('select').selectOption(source);
        await dialog(page).getByRole('button', {name: 'Add 1 input'}).click();
        await dialog_closes(page);
        await header_says(row(page, 'Virtual Port 2'), `From ${source}, off`);
        await cell(page, 'Virtual Port 2', 'Relay 1').click();
        await cell_says(page, 'Virtual Port 2', 'Relay 1', 'connected, off');
        await other.control('press', '1');
        await cell_says(page, 'Virtual Port 2', 'Relay 1', 'connected, on');
        await header_says(row(page, 'Virtual Port 2'), `From ${source}, on`);
        equal(await page.evaluate(() => window.hit ?? 'none'), 'none', 'markup from the network');
    });

    await check('a source that is lost is marked, and right again when it is back', async () => {
        await other.stop('SIGTERM');
        await header_says(row(page, 'Virtual Port 2'), `Lost: ${source}, off`);
        await other.launch();
        await other.control('press', '1');
        await header_says(row(page, 'Virtual Port 2'), `From ${source}, on`);
    });

    await check('a source is taken away in the page', async () => {
        await row(page, 'Virtual Port 2').click();
        await dialog(page).locator('select').selectOption('-');
        await dialog(page).getByRole('button', {name: 'Apply'}).click();
        await dialog_closes(page);
        await header_says(row(page, 'Virtual Port 2'), 'No source, off');
        equal((await studio.grid()).inputs.find(({name}) => name === 'Virtual Port 2').vgpo_src, '-', "the unit's source");
    });
    await page.context().close();
    await studio.remove();
    await other.remove();
}
