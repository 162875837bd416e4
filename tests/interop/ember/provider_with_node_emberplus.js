// Our provider, and clients of the package node-emberplus.
'use strict'
const { EmberClient, EmberClientEvent, LoggingService, EmberLib } = require('node-emberplus')
const { check, equal, until, Provider, freePort, printed, sorted } = require('./support')

// The package's own expandAsync does not end on all trees.
async function walk(client, node, above = '', out = {}) {
	for (const child of node.getChildren() || []) {
		const path = `${above}/${child.contents.identifier}`
		if (child.isParameter()) {
			out[path] = printed(child.contents.value)
			continue
		}
		out[path] = null
		await client.getDirectoryAsync(child)
		await walk(client, client.root.getElementByPath(child.getPath()), path, out)
	}
	return out
}

async function connected(port) {
	const client = new EmberClient({ host: '127.0.0.1', port, logger: new LoggingService(1) })
	client.on(EmberClientEvent.ERROR, (error) => (client.failure = error))
	await client.connectAsync()
	await client.getDirectoryAsync()
	return client
}

const port1 = 'unit/gpio/physical/gpio 1'

module.exports = async function (programs) {
	const port = await freePort()
	let provider = await new Provider(programs, port).ready()
	let client = await connected(port)
	const other = await connected(port)
	const name = (text) => `node-emberplus client: ${text}`
	const at = (path) => client.getElementByPathAsync(path)

	await check(name('walks the whole tree, and it is the provider\'s'), async () => {
		equal(sorted(await walk(client, client.root)), sorted(await provider.tree()), 'tree')
	})
	await check(name('sees enumeration, type and access of a parameter'), async () => {
		const { contents } = await at(`${port1}/type`)
		equal([contents.type, contents.access, contents.enumeration], [6, 3, 'disabled\ninput\noutput'])
		const status = (await at(`${port1}/status`)).contents
		equal([status.type, status.value], [EmberLib.ParameterType.boolean, false])
	})
	await check(name('sets an enumeration, a boolean and a text, and is answered'), async () => {
		await client.setValueAsync(await at(`${port1}/type`), 2)
		await provider.line(`set /${port1}/type=2`)
		await client.setValueAsync(await at(`${port1}/status`), true)
		await provider.line(`set /${port1}/status=1`)
		await client.setValueAsync(await at(`${port1}/input functions`), 'Play, Stop')
		await provider.line(`set /${port1}/input functions=Play, Stop`)
	})
	await check(name('is told the value that stands when a set is undone or refused'), async () => {
		const functions = await at(`${port1}/input functions`)
		await client.setValueAsync(functions, 'refused')
		equal((await at(`${port1}/input functions`)).contents.value, 'as before')
		await client.setValueAsync(await at(`${port1}/active triggers`), 'x')
		equal((await at(`${port1}/active triggers`)).contents.value, '')
	})
	await check(name('hears what the application and another client change'), async () => {
		const heard = await other.getElementByPathAsync(`${port1}/status`)
		await provider.done(`value /${port1}/status=0`)
		await until(() => heard.contents.value === false, 'the application\'s change')
		await client.setValueAsync(await at(`${port1}/status`), true)
		await until(() => heard.contents.value === true, 'the other client\'s change')
		equal(heard.contents.type, EmberLib.ParameterType.boolean)
	})
	await check(name('sees an element appear in an empty node, change, go, and return'), async () => {
		const sources = await at('unit/gpio/vgpio sources')
		await client.getDirectoryAsync(sources)
		await provider.done('add v-0=Door')
		const children = () => client.root.getElementByPath(sources.getPath()).getChildren() || []
		const added = await until(() => children()[0], 'the element')
		equal([added.contents.identifier, added.contents.value], ['v-0', 'Door'])
		await provider.done('value /unit/gpio/vgpio sources/v-0=Gate')
		await until(() => children()[0].contents.value === 'Gate', 'its change')
		await provider.done('remove /unit/gpio/vgpio sources/v-0')
		await until(() => children()[0].contents.isOnline === false, 'its end')
		equal(children()[0].contents.value, 'Gate')
		await provider.done('add v-0=Back')
		await until(() => children()[0].contents.isOnline === true && children()[0].contents.value === 'Back', 'its return')
	})
	await check(name('finds everything again after the provider was killed and started anew'), async () => {
		await provider.stop('SIGKILL')
		await until(() => !client.isConnected(), 'the loss')
		provider = await new Provider(programs, port).ready()
		client = await connected(port)
		equal(sorted(await walk(client, client.root)), sorted(await provider.tree()), 'tree')
		equal((await at(`${port1}/type`)).contents.value, 1)
	})
	await client.disconnectAsync()
	await provider.stop()
}
