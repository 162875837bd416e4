// node take_pictures.js BUILD_FOLDER PROJECT_FOLDER: the pictures for the documents, of the studio example while a show is on.
import {copyFileSync, readFileSync, statSync} from 'node:fs';
import path from 'node:path';
import {cell, cell_says, column, header_says, launch, open_page, option, row} from './pages.js';
import {small_unit, Unit, until} from './support.js';

const [build, project] = process.argv.slice(2);
const programs = path.join(build, 'bin');
const example = path.join(project, 'docs/examples/studio');
const wide = {viewport: {width: 1280, height: 900}};
const phone = {viewport: {width: 390, height: 780}, deviceScaleFactor: 2, hasTouch: true, isMobile: true};

async function start_studio() {
    const {servers, ...settings} = JSON.parse(readFileSync(path.join(example, 'unit.json'), 'utf8'));
    const studio = new Unit(programs, settings, '127.0.0.2');
    copyFileSync(path.join(example, 'config.json'), path.join(studio.root, 'mnt/data/config/config.json'));
    return studio.start('--with-daemons');
}

// Offers one virtual output, which is on.
async function start_gallery() {
    const gallery = await new Unit(programs, {...small_unit, friendly_name: 'Gallery'}, '127.0.0.3').start('--with-daemons');
    await gallery.control('set-port', 'Virtual Port 1', 'output');
    await gallery.control('set-port', 'GPI 1', 'input', '--mode', 'momentary');
    await gallery.control('connect', 'GPI 1', 'vGPO 1');
    await gallery.control('press', '1');
    return gallery;
}

// A show is on: the red light, the recorder, a guest's cough button, and a cue from the gallery.
async function begin_show(studio) {
    const source = 'vGPO1@Gallery';
    await until(async () => (await studio.grid()).vgpo_src_list.some(({name}) => name === source), "the gallery's output");
    await studio.control('set-port', 'Virtual Port 1', 'input', '--source', source);
    await studio.control('connect', 'vGPI 1', 'Talkback');
    await studio.control('connect', 'On Air', 'LED 1');
    await studio.control('connect', 'On Air', 'Dim Monitors');
    await studio.control('connect', 'GPI 4', 'Relay 6', '--invert');
    await studio.control('event', 'On Air', 'on');
    await studio.control('press', '1');
}

async function take(page, name) {
    const file = path.join(project, 'docs/pictures', `${name}.png`);
    await page.screenshot({path: file});
    console.log(`${name}.png ${statSync(file).size} bytes`);
    await page.context().close();
}

async function take_all(browser, studio) {
    const open = (where, options) => open_page(browser, studio.url + where, options);
    for (const colorScheme of ['light', 'dark']) {
        const page = await open('/', {...wide, colorScheme});
        await cell_says(page, 'Physical Port 1', 'Relay 1', 'connected, on');
        await header_says(column(page, 'Talkback'), 'handler, on');
        await cell(page, 'On Air', 'Relay 2').hover();
        await take(page, `grid_${colorScheme}`);
    }
    const small = await open('/', {...phone, colorScheme: 'dark'});
    await cell(small, 'On Air', 'Dim Monitors').tap();
    await take(small, 'phone');
    const settings = await open('/', {...wide, colorScheme: 'light'});
    await row(settings, 'Physical Port 5').click();
    await option(settings, 'Output').waitFor();
    await take(settings, 'port_settings');
    const panel = await open('/panel.html', {...wide, colorScheme: 'light'});
    await panel.getByRole('button', {name: 'Press Physical Port 2'}).click();
    await panel.getByRole('button', {name: 'Latch Physical Port 4'}).click();
    await panel.getByRole('button', {name: 'Press User Button 2'}).click();
    await panel.locator('#events li', {hasText: 'User Button 2'}).first().waitFor();
    for (const name of ['Physical Port 4', 'User Button 2']) {
        await until(async () => (await panel.locator('.tile.on', {hasText: name}).count()) > 0, `a lamp at ${name}`);
    }
    await take(panel, 'panel');
}

const browser = await launch();
const studio = await start_studio();
const gallery = await start_gallery();
try {
    await begin_show(studio);
    await take_all(browser, studio);
} finally {
    await browser.close();
    await studio.remove();
    await gallery.remove();
}
