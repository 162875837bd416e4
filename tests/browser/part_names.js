// Names are text, whatever they look like.
import {check, equal, expect, set_up, small_unit, Unit} from './support.js';
import {cell, cell_says, column, dialog, dialog_closes, message_says, open_page, row} from './pages.js';

const image = '<img src=x onerror=window.hit=1>';
const script = '"\'><script>window.hit=1</script>';
const wide = 'W'.repeat(63);
const turned = 'abc \u202egnp.exe';
const combined = 'Zal\u0334\u0335\u0336go & <b>bold</b> ${hit} {{hit}}';

export async function names({browser, programs}) {
    const settings = {
        ...small_unit,
        friendly_name: image,
        handlers: [{name: image}, {name: script}],
        triggers: [script, wide, turned, combined],
    };
    const unit = await new Unit(programs, settings).start();
    await set_up(unit);
    const free = {triggers: (await unit.free_items(0)).triggers, handlers: (await unit.free_items(1)).handlers};
    const ids = (list) => list.map((item) => item.index).join(',');
    await unit.post('/cgi/gpioGrid.cgi', {gpioType: 'event', gpioPort: ids(free.triggers), newState: 1});
    await unit.post('/cgi/gpioGrid.cgi', {gpioType: 'event', gpioPort: ids(free.handlers), newState: 2});
    const page = await open_page(browser, unit.url);
    const harmless = async (where) => {
        equal(
            await where.evaluate(() => [window.hit ?? 'none', document.querySelectorAll('img, script:not([src]), b').length]),
            ['none', 0],
            'markup from names'
        );
    };

    await check("rows, columns, cells and the page's title show names as they are", async () => {
        for (const name of [script, wide, turned, combined])
            equal(await row(page, name).locator('.name').textContent(), name, 'a row');
        equal(await column(page, image).locator('.name').textContent(), image, 'a column');
        equal(await page.locator('#unit_name').textContent(), image, "the unit's name");
        expect((await page.title()).includes(image), 'the title lacks the name');
        await harmless(page);
    });

    await check('messages, dialogs and the line about a cell show names as they are', async () => {
        await cell(page, script, image).click();
        await cell_says(page, script, image, 'connected, off');
        await message_says(page, `Connected ${script} → ${image}`);
        expect((await page.locator('#about').textContent()).startsWith(`${script} → ${image}`), 'the line about the cell');
        await row(page, script).click();
        await dialog(page).getByText(`${script} → ${image}`).waitFor();
        await dialog(page).getByRole('button', {name: 'Remove from the grid'}).click();
        await page.getByText(`Remove ${script}?`).waitFor();
        await harmless(page);
        await dialog(page).getByRole('button', {name: 'Remove', exact: true}).click();
        await dialog_closes(page);
        await page.locator('#undo').click();
        await cell_says(page, script, image, 'connected, off');
        await harmless(page);
    });

    await check('sources of other units are listed and shown as they are', async () => {
        const source = `vGPO1@${image}`;
        const rewrite = async (route) => {
            const answer = await route.fetch();
            const document = await answer.json();
            if (document.vgpo_src_list) document.vgpo_src_list.push({name: source});
            for (const input of document.inputs ?? []) if (input.class === 'virtual') input.vgpo_src = source;
            await route.fulfill({response: answer, json: document});
        };
        await page.route('**/cgi/gpioGrid.cgi?*', rewrite);
        await unit.control('set-port', 'Virtual Port 1', 'input');
        await row(page, 'Virtual Port 1').waitFor();
        equal(await row(page, 'Virtual Port 1').locator('.setting').textContent(), `Lost: ${source}`, 'the setting');
        await row(page, 'Virtual Port 1').click();
        expect((await dialog(page).locator('option').allTextContents()).includes(source), 'the source is not offered');
        await harmless(page);
    });

    await check('the panel shows names as they are', async () => {
        const panel = await open_page(browser, `${unit.url}/panel.html`);
        await unit.control('event', script, 'on');
        await panel.locator('#events li', {hasText: script}).first().waitFor();
        equal(await panel.locator('#unit_name').textContent(), image, "the unit's name");
        await harmless(panel);
        await panel.context().close();
    });
    await page.context().close();
    await unit.remove();
}
