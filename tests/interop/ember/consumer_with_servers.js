// Our consumer, and the servers of both packages.
'use strict'
const path = require('path')
const { check, equal, Program, freePort } = require('./support')

const type = 'unit/gpio/virtual/vgpio 1/type'
const status = 'unit/gpio/virtual/vgpio 1/status'
const text = 'unit/gpio/physical/gpio 2/input functions'

async function tried(programs, title, script) {
	const port = await freePort()
	const start = async () => {
		const server = new Program(process.execPath, [path.join(__dirname, script), String(port)])
		await server.line(`listening ${port}`)
		return server
	}
	let server = await start()
	const consumer = new Program(`${programs}/ember_test_consumer`, [`127.0.0.1:${port}`, `/${type}`, status, text, 'unit/nothing'])
	const name = (what) => `${title} server: ${what}`
	const change = async (where, value, heard) => {
		server.say(`value ${where}=${value}`)
		await consumer.line(heard)
	}

	await check(name('our consumer finds its parameters and their values, and that one is not there'), async () => {
		await consumer.line('up')
		const heard = []
		for (let i = 0; i < 4; i++) heard.push(await consumer.line(() => true, 'a value'))
		equal(heard.sort(), [`/${type}=2`, `${status}=1`, `${text}=Record`, 'unit/nothing is none'].sort())
	})
	await check(name('our consumer hears every change once'), async () => {
		await change(status, 'false', `${status}=0`)
		await change(type, '1', `/${type}=1`)
		await change(text, 'Play', `${text}=Play`)
		await change(status, 'true', `${status}=1`)
		await change(status, 'false', `${status}=0`)
		equal(consumer.lines, [])
	})
	await check(name('our consumer keeps the link alive'), async () => {
		await new Promise((resolve) => setTimeout(resolve, 12000))
		equal(consumer.lines, [])
		await change(status, 'true', `${status}=1`)
	})
	await check(name('our consumer is back after the server was killed and started anew'), async () => {
		await server.stop('SIGKILL')
		await consumer.line('down')
		server = await start()
		await consumer.line('up')
		await consumer.line(`${text}=Record`)
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
