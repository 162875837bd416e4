// Our provider, and clients of the package emberplus-connection.
'use strict'
const { EmberClient } = require('emberplus-connection')
const { check, equal, until, Provider, freePort, printed, sorted } = require('./support')

function known(elements, above = '', out = {}) {
	for (const element of Object.values(elements || {})) {
		const { identifier, value, type } = element.contents
		const path = `${above}/${identifier}`
		out[path] = type === 'PARAMETER' ? printed(value) : null
		known(element.children, path, out)
	}
	return out
}

async function connected(port) {
	const client = new EmberClient('127.0.0.1', port)
	client.on('error', (error) => (client.failure = error))
	await client.connect()
	return client
}

const at = (client, path) => client.getElementByPath(path, undefined, '/')
const port1 = 'unit/gpio/physical/gpio 1'

module.exports = async function (programs) {
	const port = await freePort()
	let provider = await new Provider(programs, port).ready()
	const client = await connected(port)
	const other = await connected(port)
	const name = (text) => `emberplus-connection client: ${text}`
	const set = async (path, value) => (await client.setValue(await at(client, path), value)).response

	await check(name('expands the whole tree, and it is the provider\'s'), async () => {
		await client.expand(client.tree)
		equal(sorted(known(client.tree)), sorted(await provider.tree()), 'tree')
	})
	await check(name('sees enumeration, type and access of a parameter'), async () => {
		const { contents } = await at(client, `${port1}/type`)
		equal([contents.parameterType, contents.access, contents.enumeration], ['ENUM', 'READ_WRITE', 'disabled\ninput\noutput'])
		const status = (await at(client, `${port1}/status`)).contents
		equal([status.parameterType, status.value], ['BOOLEAN', false])
	})
	await check(name('sets an enumeration, a boolean and a text, and is answered'), async () => {
		equal((await set(`${port1}/type`, 2)).contents.value, 2)
		await provider.line(`set /${port1}/type=2`)
		equal((await set(`${port1}/status`, true)).contents.value, true)
		await provider.line(`set /${port1}/status=1`)
		equal((await set(`${port1}/input functions`, 'Play, Stop')).contents.value, 'Play, Stop')
		await provider.line(`set /${port1}/input functions=Play, Stop`)
	})
	await check(name('is told the value that stands when a set is undone or refused'), async () => {
		equal((await set(`${port1}/input functions`, 'refused')).contents.value, 'as before')
		equal((await set(`${port1}/active triggers`, 'x')).contents.value, '')
	})
	await check(name('hears what the application and another client change'), async () => {
		await (await other.getDirectory(other.tree)).response
		await at(client, `${port1}/status`)
		const heard = await at(other, `${port1}/status`)
		await provider.done(`value /${port1}/status=0`)
		await until(() => heard.contents.value === false, 'the application\'s change')
		await set(`${port1}/status`, true)
		await until(() => heard.contents.value === true, 'the other client\'s change')
	})
	await check(name('sees an element appear in an empty node, change, go, and return'), async () => {
		await at(client, 'unit/gpio/vgpio sources')
		await provider.done('add v-0=Door')
		const sources = await at(client, 'unit/gpio/vgpio sources')
		const added = await until(() => Object.values(sources.children || {})[0], 'the element')
		equal([added.contents.identifier, added.contents.value], ['v-0', 'Door'])
		await provider.done('value /unit/gpio/vgpio sources/v-0=Gate')
		await until(() => added.contents.value === 'Gate', 'its change')
		await provider.done('add v-1=Second')
		await until(() => Object.values(sources.children).length === 2, 'a second one')
		await provider.done('remove /unit/gpio/vgpio sources/v-0')
		await until(() => added.contents.isOnline === false, 'its end')
		await provider.done('add v-0=Back')
		await until(() => added.contents.isOnline === true && added.contents.value === 'Back', 'its return')
	})
	await check(name('can ask every parameter and every node again and again'), async () => {
		for (let i = 0; i < 3; i++) {
			for (const path of ['unit/gpio/physical', port1, `${port1}/type`, 'unit/gpio/vgpio sources']) {
				await (await client.getDirectory(await at(client, path))).response
			}
		}
	})
	await check(name('stays connected through its own keep-alives'), async () => {
		await new Promise((resolve) => setTimeout(resolve, 10800))
		equal([client.connected, other.connected, client.failure === undefined], [true, true, true])
		equal((await set(`${port1}/status`, false)).contents.value, false)
	})
	await check(name('finds everything again after the provider was killed and started anew'), async () => {
		await provider.stop('SIGKILL')
		provider = await new Provider(programs, port).ready()
		await until(() => client.connected, 'the connection', 20000)
		const fresh = await connected(port)
		await fresh.expand(fresh.tree)
		equal(sorted(known(fresh.tree)), sorted(await provider.tree()), 'tree')
		fresh.discard()
		equal((await set(`${port1}/type`, 0)).contents.value, 0)
	})
	client.discard()
	other.discard()
	await provider.stop()
}
