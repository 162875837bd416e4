// What all parts share: counting checks, and running units.
import {spawn, execFile} from 'node:child_process';
import {mkdtempSync, mkdirSync, rmSync, writeFileSync} from 'node:fs';
import net from 'node:net';
import {tmpdir} from 'node:os';
import path from 'node:path';

export const results = {passed: 0, failed: 0};
const patience_ms = 20000;

export async function check(name, body) {
    try {
        await body();
        results.passed++;
        console.log(`passed: ${name}`);
    } catch (error) {
        results.failed++;
        console.log(`FAILED: ${name}: ${error?.stack ?? error}`);
    }
}

export function expect(holds, what) {
    if (!holds) throw new Error(what);
}

export function equal(found, expected, what = 'value') {
    const [a, b] = [JSON.stringify(found), JSON.stringify(expected)];
    if (a !== b) throw new Error(`${what} is ${a}, not ${b}`);
}

// Until `ready` returns something true, which is returned.
export async function until(ready, what) {
    const end = Date.now() + patience_ms;
    for (;;) {
        const found = await ready();
        if (found) return found;
        if (Date.now() > end) throw new Error(`waited in vain for ${what}`);
        await new Promise((resolve) => setTimeout(resolve, 20));
    }
}

// Free at this moment, on the address.
async function free_port(address) {
    return new Promise((resolve, reject) => {
        const server = net
            .createServer()
            .on('error', reject)
            .listen(0, address, () => {
                const {port} = server.address();
                server.close(() => resolve(port));
            });
    });
}

const pins = (count, coughs) =>
    Array.from({length: count + coughs}, (_, i) =>
        i < count ? {in_pin: i + 1, out_pin: i + 101} : {in_pin: i + 1, cough: true}
    );

// Six ports, two cough ports, four relays, four virtual ports, two buttons; nothing is on the grid but Record, Play and On Air.
export const small_unit = {
    friendly_name: 'Studio 1',
    pins: pins(6, 2),
    relays: {base_pin: 201, count: 4},
    virtual_count: 4,
    user_buttons: 2,
    handlers: [{name: 'Record'}, {name: 'Play'}, {name: 'Talk'}, {name: 'Listen'}],
    triggers: ['On Air', 'Talk', 'Listen'],
};

// A unit in a folder of its own.
export class Unit {
    constructor(programs, settings, address = '127.0.0.1') {
        this.programs = programs;
        this.settings = settings;
        this.address = address;
        this.root = mkdtempSync(path.join(tmpdir(), 'zel_browser_'));
        for (const folder of ['etc/zel', 'mnt/data/config', 'run/zel'])
            mkdirSync(path.join(this.root, folder), {recursive: true, mode: 0o700});
    }

    async start(...options) {
        this.port ??= await free_port(this.address);
        this.ember_port ??= await free_port(this.address);
        const servers = {ember: {address: this.address, port: this.ember_port}, web: {address: this.address, port: this.port}};
        writeFileSync(path.join(this.root, 'etc/zel/unit.json'), JSON.stringify({...this.settings, servers}));
        this.url = `http://${this.address}:${this.port}`;
        await this.launch(options);
        return this;
    }

    async launch(options = this.options) {
        this.options = options;
        this.log = '';
        this.child = spawn(path.join(this.programs, 'zel_unit'), ['--root', this.root, ...options], {
            stdio: ['ignore', 'ignore', 'pipe'],
        });
        this.ended = new Promise((resolve) => this.child.on('exit', resolve));
        this.child.stderr.on('data', (data) => {
            this.log += data;
        });
        this.running = true;
        this.ended.then(() => {
            this.running = false;
        });
        await until(async () => {
            if (!this.running) throw new Error(`the unit ended: ${this.log}`);
            return fetch(`${this.url}/api/unit`).then(
                (answer) => answer.ok,
                () => false
            );
        }, 'the unit');
    }

    async stop(signal = 'SIGTERM') {
        if (this.running) this.child.kill(signal);
        await this.ended;
    }

    async remove() {
        await this.stop();
        rmSync(this.root, {recursive: true});
    }

    // The command-line tool on this unit; rejects when it is refused.
    control(...words) {
        return new Promise((resolve, reject) => {
            execFile(path.join(this.programs, 'zelctl'), ['--root', this.root, ...words], (error, out, why) =>
                error ? reject(new Error(why)) : resolve(out)
            );
        });
    }

    async post(url, fields) {
        return fetch(this.url + url, {method: 'POST', body: new URLSearchParams(fields), headers: {Origin: this.url}});
    }

    async grid() {
        return (await fetch(`${this.url}/cgi/gpioGrid.cgi?grid`)).json();
    }

    // "Physical Port 1>Relay 1", inverted ones with "!" in front, as the unit has them.
    async connections() {
        const grid = await this.grid();
        const kind = (item_class) => (['event', 'relay'].includes(item_class) ? item_class : 'port');
        const is = (item, wanted, id) => item.index === id && kind(item.class) === kind(wanted);
        const name = (list, wanted, id) => list.find((item) => is(item, wanted, id))?.name ?? '?';
        const words = (c) => {
            const ends = [name(grid.inputs, c.input_class, c.input_id), name(grid.outputs, c.output_class, c.output_id)];
            return `${c.invert ? '!' : ''}${ends.join('>')}`;
        };
        return grid.connections.map(words).sort();
    }

    async free_items(kind) {
        return (await fetch(`${this.url}/cgi/gpioGrid.cgi?getFreeGpio=${kind}`)).json();
    }
}

// What the parts begin with: the first three ports inputs, the fourth an output, all on the grid that they use.
export async function set_up(unit) {
    for (const port of ['GPI 1', 'GPI 2', 'GPI 3']) await unit.control('set-port', port, 'input', '--mode', 'momentary');
    await unit.control('set-port', 'GPI 4', 'output');
    const {triggers} = await unit.free_items(0);
    const {handlers} = await unit.free_items(1);
    const ids = (list, names) =>
        list
            .filter((item) => names.includes(item.name))
            .map((item) => item.index)
            .join(',');
    await unit.post('/cgi/gpioGrid.cgi', {gpioType: 'event', gpioPort: ids(triggers, ['On Air', 'Talk', 'Listen']), newState: 1});
    await unit.post('/cgi/gpioGrid.cgi', {
        gpioType: 'event',
        gpioPort: ids(handlers, ['Record', 'Play', 'Talk', 'Listen']),
        newState: 2,
    });
    await unit.post('/cgi/gpioGrid.cgi', {gpioType: 'relay', gpioPort: '0,1', newState: 2});
}
