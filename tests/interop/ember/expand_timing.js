// How long a client of emberplus-connection takes to connect and to expand a tree of about 900 elements, of our provider and of
// the servers of both packages: node expand_timing.js FOLDER_OF_OUR_TEST_PROGRAMS. Rounds alternate; medians in milliseconds.
'use strict'
const path = require('path')
const { EmberClient } = require('emberplus-connection')
const { Program, Provider, freePort } = require('./support')

const rounds = 9

function count(elements) {
	return Object.values(elements || {}).reduce((sum, element) => sum + 1 + count(element.children), 0)
}

const median = (list) => list.sort((a, b) => a - b)[Math.floor(list.length / 2)].toFixed(1)

async function expand(port) {
	const client = new EmberClient('127.0.0.1', port)
	client.on('error', () => {})
	const before = process.cpuUsage()
	const start = process.hrtime.bigint()
	await client.connect()
	await client.expand(client.tree)
	const spent = Number(process.hrtime.bigint() - start) / 1e6
	const { user, system } = process.cpuUsage(before)
	const elements = count(client.tree)
	client.discard()
	return { spent, elements, own: (user + system) / 1e3 }
}

async function foreign(script) {
	const port = await freePort()
	const server = new Program(process.execPath, [path.join(__dirname, script), String(port), '86'])
	await server.line(`listening ${port}`)
	return { server, port }
}

async function main() {
	const port = await freePort()
	const peers = {
		'our provider': { server: await new Provider(process.argv[2], port, 72).ready(), port },
		'emberplus-connection': await foreign('server_emberplus_connection.js'),
		'node-emberplus': await foreign('server_node_emberplus.js'),
	}
	const times = {}
	const own = {}
	const sizes = {}
	for (let round = -1; round < rounds; round++) {
		for (const [name, peer] of Object.entries(peers)) {
			const found = await expand(peer.port)
			sizes[name] = found.elements
			if (round < 0) continue
			;(times[name] = times[name] || []).push(found.spent)
			;(own[name] = own[name] || []).push(found.own)
		}
	}
	for (const [name, list] of Object.entries(times)) {
		console.log(`connect and expand ${sizes[name]} elements of ${name} | ${median(list)} ms | ` +
			`processor time of the client itself ${median(own[name])} ms`)
	}
	for (const peer of Object.values(peers)) await peer.server.stop()
	process.exit(0)
}
main().catch((error) => {
	console.error(error)
	process.exit(1)
})
