// Our consumer, and the servers of both packages.
'use strict'
const path = require('path')
const { check, equal, until, Program, freePort } = require('./support')
const { unitTree, parameters } = require('./server_tree')

const type = 'unit/gpio/virtual/vgpio 1/type'
const status = 'unit/gpio/virtual/vgpio 1/status'
const text = 'unit/gpio/physical/gpio 2/input functions'
const delay = 'unit/gpio/physical/gpio 2/delay'
const serial = 'unit/gpio/physical/gpio 2/serial'
const later = 'unit/gpio/physical/gpio 5/status'       // only there when the server has a fifth port

async function tried(programs, title, script) {
	const port = await freePort()
	const start = async (ports = 4) => {
		const server = new Program(process.execPath, [path.join(__dirname, script), String(port), String(ports)])
		await server.line(`listening ${port}`)
		return server
	}
	let server = await start()
	const consumer = new Program(`${programs}/ember_test_consumer`, [`127.0.0.1:${port}`, `/${type}`, status, text, later])
	const name = (what) => `${title} server: ${what}`
	const change = async (where, value, heard) => {
		server.say(`value ${where}=${value}`)
		await consumer.line(heard)
	}

	await check(name('our consumer walks to every parameter of the tree'), async () => {
		const expected = parameters(unitTree(4))
		const all = new Program(`${programs}/ember_test_consumer`, [`127.0.0.1:${port}`, ...Object.keys(expected)])
		await all.line('up')
		await until(() => all.lines.length >= Object.keys(expected).length, 'all values')
		equal(all.lines.sort(), Object.entries(expected).map(([where, value]) => `${where}=${value}`).sort())
		await all.stop()
	})
	await check(name('our consumer finds its parameters and their values, and that one is not there'), async () => {
		await consumer.line('up')
		const heard = []
		for (let i = 0; i < 4; i++) heard.push(await consumer.line(() => true, 'a value'))
		equal(heard.sort(), [`/${type}=2`, `${status}=1`, `${text}=Record`, `${later} is none`].sort())
	})
	await check(name('our consumer hears every change once'), async () => {
		await change(status, 'false', `${status}=0`)
		await change(type, '1', `/${type}=1`)
		await change(text, 'Play', `${text}=Play`)
		await change(status, 'true', `${status}=1`)
		await change(status, 'false', `${status}=0`)
		equal(consumer.lines, [])
	})
	await check(name('our consumer sets a parameter of each kind, and its followers are told'), async () => {
		const follower = new Program(`${programs}/ember_test_consumer`, [`127.0.0.1:${port}`, status, type, text, delay])
		for (let i = 0; i < 5; i++) await follower.line(() => true, 'up and the values')
		for (const [kind, where, value, stored] of [
			['number', status, 1, true],
			['number', type, 0, 0],
			['text', text, 'Record, Größe', 'Record, Größe'],
			['number', delay, -300, -300],
			['number', status, 0, false],
		]) {
			consumer.say(`${kind} ${where}=${value}`)
			await consumer.line(`set ${where}=${value}`)
			await follower.line(`${where}=${value}`)
			server.say(`show ${where}`)
			await server.line(`${where}=${JSON.stringify(stored)}`)
		}
		equal(follower.lines, [])
		equal(consumer.lines, [])
		await follower.stop()
		await change(type, '1', `/${type}=1`)
		await change(text, 'Play', `${text}=Play`)
	})
	await check(name('our consumer does not set what is read only, of another kind or not there'), async () => {
		for (const line of [`text ${serial}=B`, `number ${text}=1`, `text ${delay}=many`, `number ${later}=1`]) {
			consumer.say(line)
			await consumer.line(`set ${line.slice(line.indexOf(' ') + 1, line.indexOf('='))} is none`)
		}
		for (const [where, stored] of [[serial, 'A 17'], [text, 'Play'], [delay, -300]]) {
			server.say(`show ${where}`)
			await server.line(`${where}=${JSON.stringify(stored)}`)
		}
		equal(consumer.lines, [])
	})
	await check(name('our consumer hears that a parameter goes and comes back'), async () => {
		server.say(`online ${type}=false`)
		await consumer.line(`/${type} is none`)
		server.say(`online ${type}=true`)
		await consumer.line(`/${type}=1`)
		equal(consumer.lines, [])
	})
	await check(name('our consumer keeps the link alive'), async () => {
		await new Promise((resolve) => setTimeout(resolve, 12000))
		equal(consumer.lines, [])
		await change(status, 'true', `${status}=1`)
	})
	await check(name('our consumer is back after the server was killed and started anew, with more ports'), async () => {
		await server.stop('SIGKILL')
		await consumer.line('down')
		server = await start(5)
		await consumer.line('up')
		const heard = []
		for (let i = 0; i < 4; i++) heard.push(await consumer.line((line) => line.includes('='), 'a value'))
		equal(heard.sort(), [`/${type}=2`, `${status}=1`, `${text}=Record`, `${later}=1`].sort())
		await change(later, 'false', `${later}=0`)
	})
	await check(name('our consumer knows that what a server no longer has is gone'), async () => {
		await server.stop('SIGKILL')
		await consumer.line('down')
		server = await start()
		await consumer.line('up')
		await consumer.line(`${later} is none`)
		await change(status, 'false', `${status}=0`)
	})
	await consumer.stop()
	await server.stop()
}

module.exports = async function (programs) {
	await Promise.all([
		tried(programs, 'emberplus-connection', 'server_emberplus_connection.js'),
		tried(programs, 'node-emberplus', 'server_node_emberplus.js'),
	])
}
