// A foreign manager against a running agent: manager.js ADDRESS ZELCTL ROOT. The last line counts.
'use strict';
const snmp = require('net-snmp');
const { execFile } = require('child_process');

const [address, zelctl, root] = process.argv.slice(2);
const port = 1161, sinkPort = 1162;
const base = '1.3.6.1.4.1.32473.1.1';
const column = (table, number, row) => `${base}.${table}.1.${number}.${row}`;
const options = { port, timeout: 3000, retries: 0, version: snmp.Version2c };

let passed = 0, failed = 0;
function check(what, holds, seen) {
    holds ? ++passed : ++failed;
    console.log(`${holds ? 'ok' : 'FAILED'}: ${what}${holds ? '' : ` (${JSON.stringify(seen)})`}`);
}

const call = (session, name, ...args) => new Promise((resolve, reject) => {
    session[name](...args, (error, result) => (error ? reject(error) : resolve(result)));
});
const values = variables => variables.map(v => (Buffer.isBuffer(v.value) ? v.value.toString() : v.value));

function walk(session, oid) {
    const seen = [];
    return new Promise((resolve, reject) => {
        session.subtree(oid, 20, variables => { for (const v of variables) seen.push(v.oid); },
            error => (error ? reject(error) : resolve(seen)));
    });
}

// As numbers, part by part.
function inOrder(a, b) {
    const x = a.split('.').map(Number), y = b.split('.').map(Number);
    for (let i = 0; i < Math.min(x.length, y.length); ++i) if (x[i] !== y[i]) return x[i] < y[i];
    return x.length < y.length;
}

function user() {
    return {
        name: 'operator', level: snmp.SecurityLevel.authPriv,
        authProtocol: snmp.AuthProtocols.sha256, authKey: 'operator pass',
        privProtocol: snmp.PrivProtocols.aes, privKey: 'private pass',
    };
}

async function reading() {
    const session = snmp.createSession(address, 'public', options);
    const oids = await walk(session, base);
    check('a walk ends', oids.length > 400, oids.length);
    check('a walk is in order', oids.every((oid, i) => i === 0 || inOrder(oids[i - 1], oid)));
    const table = await call(session, 'table', `${base}.7`);
    check('a table has its rows', Object.keys(table).length === 8, Object.keys(table));
    check('a row has its columns', table['1'][2].toString() === 'Relay 1' && table['1'][3].toString() === 'GPI 1', table['1']);
    const got = await call(session, 'get', [column(2, 2, 1), column(2, 2, 99), `${base}.1.1.0`]);
    check('a get gives values', values([got[0], got[2]]).join() === 'GPI 1,3', values(got));
    check('a get of what is not there says so', snmp.isVarbindError(got[1]), got[1]);
    session.close();
}

async function setting() {
    const session = snmp.createV3Session(address, user(), { ...options, version: snmp.Version3 });
    const type = value => ({ oid: column(2, 3, 9), type: snmp.ObjectType.Integer, value });
    check('a set is answered', values(await call(session, 'set', [type(2)])).join() === '2');
    check('a set is done when it is answered', values(await call(session, 'get', [column(2, 2, 9)])).join() === 'GPO 9');
    const refused = await call(session, 'set', [type(7)]).catch(error => error);
    check('a wrong value is refused', refused.status === snmp.ErrorStatus.WrongValue, refused.status);
    const list = { oid: column(2, 7, 9), type: snmp.ObjectType.OctetString, value: 'Nobody' };
    const unknown = await call(session, 'set', [list]).catch(error => error);
    check('an unknown name is refused', unknown.status === snmp.ErrorStatus.InconsistentValue, unknown.status);
    list.value = 'On Air';
    await call(session, 'set', [list]);
    check('a list is set', values(await call(session, 'get', [column(2, 7, 9)])).join() === 'On Air');
    session.close();
    const reader = snmp.createSession(address, 'public', options);
    const denied = await call(reader, 'set', [type(1)]).catch(error => error);
    check('a reader may not set', denied.status === snmp.ErrorStatus.NoAccess, denied.status);
    reader.close();
}

async function notifying() {
    let receiver;
    const arrival = new Promise((resolve, reject) => {
        setTimeout(() => reject(new Error('no notification came')), 20000).unref();
        const where = { port: sinkPort, address, transport: 'udp4', disableAuthorization: true };
        receiver = snmp.createReceiver(where, (error, message) => {
            if (error) return reject(error);
            const variables = message.pdu.varbinds;
            if (variables[1].value === '1.3.6.1.4.1.32473.1.0.2') resolve(variables);
        });
    });
    // The receiver does not say when its socket is open: the contact is closed and opened until a notification comes.
    const pressing = setInterval(() => {
        for (const action of ['press', 'release']) execFile(zelctl, ['--root', root, action, '1']);
    }, 300);
    const variables = await arrival.finally(() => clearInterval(pressing));
    check('a press is notified', /^GPI 1,1,[01]$/.test(values(variables.slice(2)).join()), values(variables));
    receiver.close();
}

(async () => {
    for (const part of [reading, setting, notifying]) {
        await part().catch(error => check(part.name, false, error.message));
    }
    console.log(`${passed} passed, ${failed} failed`);
    process.exit(failed === 0 ? 0 : 1);
})();
