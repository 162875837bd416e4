// The front panel, and how fast the grid follows it.
import {check, equal, expect, set_up, small_unit, Unit, until} from './support.js';
import {cell_says, column, header_says, open_page, row} from './pages.js';

const tile = (page, name) => page.locator('.tile', {has: page.getByText(name, {exact: true})});
const lamp_says = (page, name, text) =>
    tile(page, name)
        .locator('.lamp')
        .filter({hasText: new RegExp(`^${text}$`)})
        .waitFor();
const press = (page, name) => page.getByRole('button', {name: `Press ${name}`, exact: true});
const latch = (page, name) => page.getByRole('button', {name: `Latch ${name}`, exact: true});

// Notes in the grid page when each of these labels first turns to "on", on the clock that all pages share.
function note_changes(page) {
    return page.evaluate(() => {
        window.noted = {};
        const look = () => {
            for (const element of document.querySelectorAll('[role=rowheader], [role=columnheader], [role=gridcell].connected')) {
                const label = element.getAttribute('aria-label') ?? '';
                if (label.endsWith(', on')) window.noted[label] ??= performance.timeOrigin + performance.now();
            }
        };
        new MutationObserver(look).observe(document.getElementById('grid'), {subtree: true, attributes: true, childList: true});
    });
}

export async function panel({browser, programs}) {
    const unit = await new Unit(programs, small_unit).start();
    await set_up(unit);
    await unit.control('connect', 'GPI 1', 'Relay 1');
    await unit.control('connect', 'GPI 1', 'Record');
    await unit.control('connect', 'GPI 2', 'GPO 4');
    await unit.control('set-port', 'User Button 1', 'input');
    await unit.control('set-port', 'User LED 1', 'output');
    await unit.control('connect', 'User Button 1', 'User LED 1');
    const page = await open_page(browser, `${unit.url}/panel.html`);
    const grid = await open_page(browser, unit.url);

    await check(
        'a pin that is pressed on the panel turns on row, cell, column and relay, and off when it is let go',
        async () => {
            await lamp_says(page, 'Relay 1', 'off');
            await press(page, 'Physical Port 1').hover();
            await page.mouse.down();
            await lamp_says(page, 'Physical Port 1', 'pressed');
            await lamp_says(page, 'Relay 1', 'on');
            await header_says(row(grid, 'Physical Port 1'), 'Momentary, on');
            await cell_says(grid, 'Physical Port 1', 'Relay 1', 'connected, on');
            await header_says(column(grid, 'Relay 1'), 'on');
            await header_says(column(grid, 'Record'), 'handler, on');
            await page.mouse.up();
            await lamp_says(page, 'Physical Port 1', 'open');
            await lamp_says(page, 'Relay 1', 'off');
            await cell_says(grid, 'Physical Port 1', 'Relay 1', 'connected, off');
            await header_says(column(grid, 'Record'), 'handler, off');
        }
    );

    await check('Space holds a pin for as long as it is down', async () => {
        await press(page, 'Physical Port 2').focus();
        await page.keyboard.down(' ');
        await lamp_says(page, 'Physical Port 2', 'pressed');
        await lamp_says(page, 'Physical Port 4', 'on');
        await page.keyboard.up(' ');
        await lamp_says(page, 'Physical Port 2', 'open');
        await lamp_says(page, 'Physical Port 4', 'off');
    });

    await check('a pin that is held when the focus leaves is let go', async () => {
        await press(page, 'Physical Port 2').focus();
        await page.keyboard.down(' ');
        await lamp_says(page, 'Physical Port 2', 'pressed');
        await page.evaluate(() => document.activeElement.blur());
        await lamp_says(page, 'Physical Port 2', 'open');
        await page.keyboard.up(' ');
    });

    await check('a latched pin stays pressed until it is unlatched, from any page', async () => {
        await latch(page, 'Physical Port 3').click();
        await lamp_says(page, 'Physical Port 3', 'pressed');
        equal(await latch(page, 'Physical Port 3').getAttribute('aria-pressed'), 'true', 'the latch');
        const other = await open_page(browser, `${unit.url}/panel.html`);
        await lamp_says(other, 'Physical Port 3', 'pressed');
        await latch(other, 'Physical Port 3').click();
        await lamp_says(page, 'Physical Port 3', 'open');
        equal(await latch(page, 'Physical Port 3').getAttribute('aria-pressed'), 'false', 'the latch');
        await other.context().close();
    });

    await check('a user button lights the LED that it is connected to', async () => {
        await press(page, 'User Button 1').click();
        await lamp_says(page, 'User Button 1', 'on');
        await header_says(row(grid, 'User Button 1'), 'on');
        await header_says(column(grid, 'User LED 1'), 'on');
    });

    await check('the list of events tells what happened, newest first', async () => {
        await page.getByRole('button', {name: 'Clear'}).click();
        await press(page, 'Physical Port 1').click();
        await until(
            async () => (await page.locator('#events li').allTextContents()).some((line) => /Physical Port 1 released/.test(line)),
            'the release'
        );
        const lines = await page.locator('#events li').allTextContents();
        const pressed = lines.findIndex((line) => /Physical Port 1 pressed/.test(line));
        const handler = lines.findIndex((line) => /Handler Record on by Physical Port 1/.test(line));
        expect(pressed >= 0 && handler >= 0 && handler < pressed, `the events are ${JSON.stringify(lines)}`);
    });

    await check('a pin that is held when the browser goes to another site is let go', async () => {
        const leaving = await open_page(browser, `${unit.url}/panel.html`);
        await press(leaving, 'Physical Port 2').hover();
        await leaving.mouse.down();
        await lamp_says(page, 'Physical Port 2', 'pressed');
        await leaving.goto('about:blank');
        await lamp_says(page, 'Physical Port 2', 'open');
        await leaving.context().close();
    });

    await check('the panel says so when no cough port is an input', async () => {
        await page.getByText('No cough port is an input now.').waitFor();
        await unit.control('set-port', 'Cough Port 1', 'input', '--mode', 'momentary');
        await page.getByText('No cough port is an input now.').waitFor({state: 'hidden'});
        await press(page, 'Cough Port 1').waitFor();
    });

    await check('a pin that is no input cannot be pressed, and is shown on request', async () => {
        expect(!(await tile(page, 'Physical Port 5').first().isVisible()), 'a disabled port is shown');
        await page.getByText('Show pins that are not in use').click();
        await press(page, 'Physical Port 5').waitFor();
        expect(await press(page, 'Physical Port 5').isDisabled(), 'a disabled port can be pressed');
    });

    await check('the panel follows a port that is turned round', async () => {
        await unit.control('set-port', 'GPI 5', 'input', '--mode', 'momentary');
        await until(async () => await press(page, 'Physical Port 5').isEnabled(), 'a port that can be pressed');
    });

    await check('real pins are shown, and not offered to be pressed', async () => {
        const real = await browser.newContext();
        await real.route('**/api/panel', async (route) => {
            const answer = await route.fetch();
            await route.fulfill({response: answer, json: {...(await answer.json()), simulated: false}});
        });
        const watching = await real.newPage();
        await watching.goto(`${unit.url}/panel.html`);
        await watching.getByText('they can be watched here, not pressed').waitFor();
        await lamp_says(watching, 'Physical Port 1', 'open');
        equal(await press(watching, 'Physical Port 1').count(), 0, 'buttons for a real pin');
        equal(await press(watching, 'User Button 1').count(), 1, 'buttons for a user button');
        await unit.control('press', '1');
        await lamp_says(watching, 'Physical Port 1', 'pressed');
        await unit.control('release', '1');
        await real.close();
    });

    await check('what a press changes is shown soon after it; the times are printed', async () => {
        const times = [];
        for (let round = 0; round < 10; round++) {
            await note_changes(grid);
            const pressed_at = await press(page, 'Physical Port 1').evaluate((button) => {
                const now = performance.timeOrigin + performance.now();
                button.dispatchEvent(new PointerEvent('pointercancel'));
                button.focus();
                button.dispatchEvent(new KeyboardEvent('keydown', {key: ' ', bubbles: true, cancelable: true}));
                return now;
            });
            await cell_says(grid, 'Physical Port 1', 'Relay 1', 'connected, on');
            await header_says(column(grid, 'Relay 1'), 'on');
            const noted = await grid.evaluate(() => window.noted);
            const wanted = [
                'Physical Port 1, Momentary, on',
                'Physical Port 1 to Relay 1, connected, on',
                'Relay 1, on',
                'Record, handler, on',
            ];
            expect(
                wanted.every((label) => label in noted),
                `noted were only ${Object.keys(noted)}`
            );
            times.push(Math.max(...wanted.map((label) => noted[label])) - pressed_at);
            await page.keyboard.up(' ');
            await press(page, 'Physical Port 1').evaluate((button) => button.blur());
            await cell_says(grid, 'Physical Port 1', 'Relay 1', 'connected, off');
            await header_says(column(grid, 'Record'), 'handler, off');
        }
        times.sort((a, b) => a - b);
        console.log(
            'figure: from a press in one browser to the last change in another one: ' +
                `median ${times[5].toFixed(1)} ms, most ${times.at(-1).toFixed(1)} ms of 10`
        );
    });
    await page.context().close();
    await grid.context().close();
    await unit.remove();
}
