// A whole unit made from the studio example, and clients of both packages on it at once: one sets, the other is told. After
// every step everything that both know of the unit is compared with what must stand then.
'use strict'
const { check, equal, same, until, Program, freePort } = require('./support')
const { packages, values } = require('./clients')
const { ExampleUnit } = require('./unit_process')
const { studioTree, valuesOf } = require('./studio_tree')
const { steps } = require('./unit_steps')
const path = require('path')

// What the steps leave that is kept over a restart. Levels that were set and the modes of buttons are not; the first list of
// handlers that is shown has no separator before its last name.
const afterRestart = {
	'physical/gpio 1': ['port', { type: 2 }],
	'physical/gpio 2': ['port', { type: 1, functions: 'Play', triggers: 'GPI 2', mode: 0 }],
	'physical/gpio 5': ['port', { type: 1, functions: 'RecordDim Monitors', triggers: 'GPI 5', mode: 0 }],
	'physical/gpio 7': ['port', { type: 2 }],
	'physical/gpio 9': ['port', {}],
	'physical/gpio 10': ['port', { type: 2, triggers: 'On Air' }],
	'physical/cough 1': ['cough', { type: 1, mode: 1 }],
	'physical/relay 6': ['relay', { triggers: 'On Air, Door Bell' }],
	'virtual/vgpio 1': ['virtual', { type: 1, triggers: 'vGPI 1' }],
	'virtual/vgpio 2': ['virtual', { type: 2, triggers: '!GPI 2', active: '!GPI 2', status: true }],
	'virtual/vgpio 4': ['virtual', { type: 1, triggers: 'vGPI 4', source: 'vGPO1@Desk' }],
	'virtual/vgpio 5': ['virtual', { type: 2 }],
	'user buttons/button 1': ['button', {}],
	'user buttons/led 1': ['led', { type: 2 }],
	'user buttons/led 2': ['led', { type: 2 }],
	'user buttons/led 3': ['led', { type: 2 }],
	'user buttons/led 4': ['led', { type: 2, triggers: '!Door Bell', active: '!Door Bell', status: true }],
}

class Trial {
	constructor(title, unit, writer, watcher) {
		Object.assign(this, { title, unit, writer, watcher })
	}
	check(what, body) {
		return check(`example unit, ${this.title}: ${what}`, body)
	}
	// Both clients know exactly what is expected, whatever came before.
	async agree() {
		for (const client of [this.writer, this.watcher]) {
			await client.settle()
			same(values(client), this.expected, 'what a client knows')
		}
		equal([this.writer.losses, this.watcher.losses], [0, 0], 'lost connections')
	}
	async take({ set, foreign, answer, control, then = {}, states = [] }) {
		if (control) await this.unit.control(...control)
		const at = set || foreign
		if (at) {
			const [where, value] = at
			const told = `/unit/gpio/${where}`
			const heard = foreign ? await this.writer.setForeign(told, value) : await this.writer.set(told, value)
			const stands = answer === undefined ? value : answer
			equal(heard, stands, `answer to ${where} = ${value}`)
			this.expected[told] = stands
		}
		for (const [where, value] of Object.entries(then)) this.expected[`/unit/gpio/${where}`] = value
		await this.agree()
		for (const [table, name, member, value] of states)
			equal((await this.unit.row(table, name))[member], value, `${member} of ${name}`)
	}
}

// Virtual outputs of another unit come and go, and one of them is followed: it is a server of a foreign package.
async function sources(trial, server, serverPort, discovery) {
	const said = (what) => discovery.say(what)
	const at = (what) => `/unit/gpio/vgpio sources/${what}`
	const arrives = async (what) => {
		await until(async () => {
			await trial.writer.settle()
			await trial.watcher.settle()
			return [trial.writer, trial.watcher].every(what)
		}, 'the news')
	}
	await trial.check('both see sources come into an empty node, go, and return', async () => {
		said(`found vGPO1@Desk ${serverPort} /unit/gpio/virtual/vgpio 1`)
		said(`found vGPO2@Desk ${serverPort} /unit/gpio/virtual/vgpio 2`)
		trial.expected[at('v-0')] = 'vGPO1@Desk'
		await arrives((client) => values(client)[at('v-1')] === 'vGPO2@Desk')
		for (let i = 0; i < 2; i++) {
			said('gone vGPO2@Desk')
			await arrives((client) => !Object.values(values(client)).includes('vGPO2@Desk'))
			await trial.agree()
			said(`found vGPO2@Desk ${serverPort} /unit/gpio/virtual/vgpio 2`)
			await arrives((client) => Object.values(values(client)).includes('vGPO2@Desk'))
		}
		said('gone vGPO2@Desk')
		await arrives((client) => !Object.values(values(client)).includes('vGPO2@Desk'))
		await trial.agree()
	})
	const port = '/unit/gpio/virtual/vgpio 4'
	await trial.check('a virtual input follows a foreign server, and both are told', async () => {
		equal(await trial.writer.set(`${port}/vgpio source`, 'vGPO1@Desk'), 'vGPO1@Desk')
		trial.expected[`${port}/vgpio source`] = 'vGPO1@Desk'
		for (const level of [true, false, true]) {
			server.say(`value unit/gpio/virtual/vgpio 1/status=${level}`)
			await arrives((client) => values(client)[`${port}/status`] === level)
			trial.expected[`${port}/status`] = level
			await trial.agree()
		}
		said('gone vGPO1@Desk')
		await arrives((client) => values(client)[`${port}/status`] === false)
		trial.expected[`${port}/status`] = false
		await trial.agree()
	})
}

async function tried(programs, writing, watching) {
	const serverPort = await freePort()
	const server = new Program(process.execPath, [path.join(__dirname, 'server_emberplus_connection.js'), String(serverPort)])
	await server.line(`listening ${serverPort}`)
	const unit = await ExampleUnit.made(programs, await freePort(), await freePort())
	const discovery = new Program(`${programs}/ember_test_discovery`, [], { ZEL_ROOT: unit.root })
	await unit.start()
	await discovery.line('ready')
	const names = { serial: unit.serial(), version: await unit.version() }
	const writer = await packages[writing].connected(unit.port)
	const watcher = await packages[watching].connected(unit.port)
	const trial = new Trial(`${writing} sets, ${watching} is told`, unit, writer, watcher)

	for (const [name, client] of [[writing, writer], [watching, watcher]])
		await trial.check(`${name} finds every element with its kind, access, entries and value`, async () => {
			same(await client.walk(), studioTree(names), 'the tree')
		})
	trial.expected = valuesOf(studioTree(names))
	for (const [what, list] of Object.entries(steps))
		await trial.check(what, async () => {
			for (const step of list) await trial.take(step)
		})
	await sources(trial, server, serverPort, discovery)

	await trial.check('what was set is there again after the unit was killed and started anew', async () => {
		await until(() => unit.saved().includes('"vGPO1@Desk"'), 'the last setting in the file')
		await unit.stop('SIGKILL')
		await until(() => writer.losses > 0 && watcher.losses > 0, 'the loss')
		await unit.start()
		const after = studioTree({ ...names, changes: afterRestart, sources: { 'v-0': 'vGPO1@Desk' } })
		for (const package_ of [writing, watching]) {
			const client = await packages[package_].connected(unit.port)
			same(await client.walk(), after, 'the tree')
			equal(await client.set('/unit/gpio/physical/gpio 7/status', true), true)
			equal(await client.set('/unit/gpio/physical/gpio 7/status', false), false)
			await client.close()
		}
	})
	// The other package has no reconnection.
	if (writing === 'emberplus-connection')
		await trial.check('a client that reconnects by itself sets again', async () => {
			await until(() => writer.isConnected, 'the connection', 20000)
			equal(await writer.set('/unit/gpio/physical/gpio 7/type', 0), 0)
			equal((await unit.row('ports', 'Physical Port 7')).type, 'disabled')
		})
	for (const client of [writer, watcher]) if (client.isConnected) await client.close()
	await unit.remove()
	await discovery.stop()
	await server.stop()
}

module.exports = async function (programs) {
	await Promise.all([
		tried(programs, 'emberplus-connection', 'node-emberplus'),
		tried(programs, 'node-emberplus', 'emberplus-connection'),
	])
}
