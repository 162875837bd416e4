// Pages keep up with the unit and with each other, lose it and find it again, and never ask without need.
import {check, equal, expect, set_up, small_unit, Unit, until} from './support.js';
import {cell, cell_says, header_says, is_live, is_stale, lost_connections, message_says, open_page, row} from './pages.js';

const shown = (page) =>
    page.evaluate(() =>
        [...document.querySelectorAll('[role=rowheader], [role=columnheader], [role=gridcell]')].map((element) =>
            element.getAttribute('aria-label')
        )
    );

export async function live({browser, programs}) {
    const unit = await new Unit(programs, small_unit).start();
    await set_up(unit);
    const page = await open_page(browser, unit.url, {expected: lost_connections});
    const other = await open_page(browser, unit.url, {expected: lost_connections});

    await check('two browsers show the same', async () => {
        await cell(page, 'On Air', 'Relay 1').click();
        await cell_says(other, 'On Air', 'Relay 1', 'connected, off');
        await cell(other, 'Physical Port 1', 'Relay 2').click();
        await cell_says(page, 'Physical Port 1', 'Relay 2', 'connected, off');
        await unit.control('press', '1');
        for (const each of [page, other]) await cell_says(each, 'Physical Port 1', 'Relay 2', 'connected, on');
        await unit.control('set-port', 'GPI 5', 'input', '--mode', 'latching');
        for (const each of [page, other]) await row(each, 'Physical Port 5').waitFor();
        equal(await shown(page), await shown(other), 'what one of them shows');
        await unit.control('release', '1');
    });

    await check('what somebody else changes leaves the focus and its cell where they are', async () => {
        await cell(page, 'On Air', 'Relay 1').focus();
        await page.evaluate(() => {
            window.focused = document.activeElement;
        });
        await unit.control('connect', 'On Air', 'Relay 2');
        await cell_says(page, 'On Air', 'Relay 2', 'connected, off');
        const kept = () => page.evaluate(() => document.activeElement === window.focused && window.focused.isConnected);
        expect(await kept(), 'a new connection took the focus away');
        await unit.control('set-port', 'GPI 6', 'input');
        await row(page, 'Physical Port 6').waitFor();
        const label = await page.evaluate(() => document.activeElement.getAttribute('aria-label'));
        equal(label, 'On Air to Relay 1, connected, off', 'the focused cell after a new row');
        await unit.control('disconnect', 'On Air', 'Relay 2');
        await cell_says(page, 'On Air', 'Relay 2', 'not connected');
    });

    await check('changes in quick succession end with the last one everywhere', async () => {
        for (let i = 0; i < 20; i++) await unit.control('event', 'On Air', i % 2 === 0 ? 'on' : 'off');
        await unit.control('event', 'On Air', 'on');
        for (const each of [page, other]) await cell_says(each, 'On Air', 'Relay 1', 'connected, on');
        for (const each of [page, other]) await header_says(row(each, 'On Air'), 'event, on');
    });

    await check('pages in hidden tabs leave the connections of the browser to those that are looked at', async () => {
        const window = await browser.newContext();
        const turn = (tab, hidden) =>
            tab.evaluate((value) => {
                Object.defineProperty(document, 'hidden', {value, configurable: true});
                document.dispatchEvent(new Event('visibilitychange'));
            }, hidden);
        const tabs = [];
        for (let i = 0; i < 8; i++) {
            const tab = await window.newPage();
            await tab.goto(unit.url);
            await is_live(tab);
            if (i < 7) await turn(tab, true);
            tabs.push(tab);
        }
        await cell(tabs[7], 'On Air', 'Relay 2').click();
        await cell_says(tabs[7], 'On Air', 'Relay 2', 'connected, on');
        await turn(tabs[0], false);
        await is_live(tabs[0]);
        await cell_says(tabs[0], 'On Air', 'Relay 2', 'connected, on');
        await unit.control('disconnect', 'On Air', 'Relay 2');
        await cell_says(tabs[0], 'On Air', 'Relay 2', 'not connected');
        await window.close();
    });

    await check('a page at rest asks the unit for nothing', async () => {
        const asked = [];
        const note = (request) => asked.push(request.url());
        page.on('request', note);
        await page.waitForTimeout(7000);
        page.off('request', note);
        equal(asked, [], 'requests in seven seconds');
        equal(await page.locator('#contact').textContent(), 'Live', 'the sign at the top');
    });

    await check('a page that lost the unit says so, changes nothing, and is right again by itself', async () => {
        await unit.stop('SIGKILL');
        for (const each of [page, other]) await is_stale(each);
        await page.getByText('What is shown may have changed meanwhile').waitFor();
        await cell(page, 'On Air', 'Relay 2').click();
        await message_says(page, 'No contact with the unit. Nothing was changed.');
        await unit.launch();
        await unit.control('disconnect', 'On Air', 'Relay 1');
        await unit.control('connect', 'Talk', 'Relay 1', '--invert');
        for (const each of [page, other]) {
            await is_live(each);
            await cell_says(each, 'On Air', 'Relay 1', 'not connected');
            await cell_says(each, 'Talk', 'Relay 1', 'connected, inverted, on');
            await header_says(row(each, 'On Air'), 'event, off');
        }
        equal(await unit.connections(), ['!Talk>Relay 1', 'Physical Port 1>Relay 2'], 'what the unit has connected');
    });

    await check('levels that change while the grid is on its way are not lost', async () => {
        let release;
        const held = new Promise((resolve) => {
            release = resolve;
        });
        const hold = async (route) => {
            const answer = await route.fetch();
            await held;
            await route.fulfill({response: answer});
        };
        await page.route('**/cgi/gpioGrid.cgi?grid*', hold);
        const asked = page.waitForRequest('**/cgi/gpioGrid.cgi?grid*');
        await unit.control('connect', 'On Air', 'Relay 1');
        await asked;
        await page.waitForTimeout(300);
        await unit.control('event', 'On Air', 'on');
        await header_says(row(page, 'On Air'), 'event, on');
        release();
        await page.unrouteAll({behavior: 'wait'});
        await cell_says(page, 'On Air', 'Relay 1', 'connected, on');
        await header_says(row(page, 'On Air'), 'event, on');
    });

    await check('a unit that has fallen silent without closing a connection is noticed', async () => {
        const heard = page.waitForFunction(() => window.heard_alive === true, undefined, {timeout: 20000});
        await page.evaluate(() => {
            const listener = new EventSource('/api/events');
            listener.addEventListener('alive', () => {
                window.heard_alive = true;
                listener.close();
            });
        });
        await heard;
        unit.child.kill('SIGSTOP');
        for (const each of [page, other]) await is_stale(each);
        unit.child.kill('SIGCONT');
        for (const each of [page, other]) await is_live(each);
        await unit.control('event', 'On Air', 'off');
        await header_says(row(page, 'On Air'), 'event, off');
    });

    await check('the panel is right again after a restart as well', async () => {
        const panel = await open_page(browser, `${unit.url}/panel.html`, {expected: lost_connections});
        await unit.stop();
        await is_stale(panel);
        await unit.launch();
        await is_live(panel);
        await unit.control('press', '1');
        await until(
            async () => /pressed/.test(await panel.locator('.tile', {hasText: 'Physical Port 1'}).first().textContent()),
            'a pressed pin'
        );
        await panel.context().close();
    });
    expect(unit.running, 'the unit has ended');
    for (const each of [page, other]) await each.context().close();
    await unit.remove();
}
