// node run.js BUILD_FOLDER [PART ...]
import path from 'node:path';
import {accessibility} from './part_accessibility.js';
import {big} from './part_big.js';
import {connections} from './part_connections.js';
import {items} from './part_items.js';
import {keyboard} from './part_keyboard.js';
import {live} from './part_live.js';
import {names} from './part_names.js';
import {panel} from './part_panel.js';
import {sources} from './part_sources.js';
import {complaints, launch} from './pages.js';
import {check, equal, results} from './support.js';

const parts = {connections, items, keyboard, names, panel, live, sources, big, accessibility};

async function main([build, ...wanted]) {
    const programs = path.join(build, 'bin');
    const browser = await launch();
    for (const name of wanted.length > 0 ? wanted : Object.keys(parts)) {
        console.log(`-- ${name}`);
        await check(`the part "${name}" came to its end`, () => parts[name]({browser, programs}));
    }
    await check('no page complained', async () => equal(complaints, [], 'what pages complained about'));
    await browser.close();
}

main(process.argv.slice(2))
    .catch((error) => {
        results.failed++;
        console.log(error);
    })
    .finally(() => {
        console.log(`${results.passed} passed, ${results.failed} failed`);
        process.exit(results.failed === 0 && results.passed > 0 ? 0 : 1);
    });
