// What all scripts here share: counting checks, steering programs, waiting for what is to come.
'use strict'
const { spawn } = require('child_process')
const net = require('net')

let passed = 0
let failed = 0

async function check(name, body) {
	try {
		await body()
		passed++
		console.log(`passed: ${name}`)
	} catch (error) {
		failed++
		console.log(`FAILED: ${name}: ${error && error.stack ? error.stack : error}`)
	}
}

const results = () => ({ passed, failed })

function equal(found, expected, what = 'value') {
	const a = JSON.stringify(found)
	const b = JSON.stringify(expected)
	if (a !== b) throw new Error(`${what} is ${a}, not ${b}`)
}

// Two maps, and only what differs is told.
function same(found, expected, what) {
	const different = [...new Set([...Object.keys(expected), ...Object.keys(found)])].filter((key) => found[key] !== expected[key])
	if (different.length === 0) return
	const told = different.slice(0, 8).map((key) => `${key} is ${JSON.stringify(found[key])}, not ${JSON.stringify(expected[key])}`)
	throw new Error(`${what}: ${told.join('; ')}${different.length > 8 ? '; ...' : ''}`)
}

// Until `ready` returns something true, which is returned.
async function until(ready, what, limit = 15000) {
	const end = Date.now() + limit
	for (;;) {
		const found = await ready()
		if (found) return found
		if (Date.now() > end) throw new Error(`waited in vain for ${what}`)
		await new Promise((resolve) => setTimeout(resolve, 10))
	}
}

// Every connection that a script makes is noted, so that it can be shown that none left the machine.
const destinations = new Set()
const connect = net.Socket.prototype.connect
net.Socket.prototype.connect = function (...args) {
	const options = Array.isArray(args[0]) ? args[0][0] : args[0]
	if (options && typeof options === 'object') destinations.add(options.host || options.path || 'localhost')
	else if (typeof args[1] === 'string') destinations.add(args[1])
	return connect.apply(this, args)
}

// A program that speaks in lines.
class Program {
	constructor(command, args, variables = {}) {
		this.lines = []
		this.rest = ''
		this.ended = false
		this.child = spawn(command, args, { stdio: ['pipe', 'pipe', 'inherit'], env: { ...process.env, ...variables } })
		this.child.stdout.on('data', (data) => {
			const parts = (this.rest + data).split('\n')
			this.rest = parts.pop()
			this.lines.push(...parts)
		})
		this.child.stdin.on('error', () => {})
		this.child.on('exit', () => (this.ended = true))
	}
	say(line) {
		this.child.stdin.write(line + '\n')
	}
	// Take lines up to the first that fits.
	async line(fits, what = String(fits)) {
		const test = typeof fits === 'string' ? (line) => line === fits : fits
		return until(() => {
			const at = this.lines.findIndex(test)
			return at >= 0 && this.lines.splice(0, at + 1)[at]
		}, what)
	}
	async stop(signal = 'SIGTERM') {
		this.child.kill(signal)
		await until(() => this.ended, 'the end of a program')
	}
}

async function freePort() {
	return new Promise((resolve) => {
		const server = net.createServer().listen(0, '127.0.0.1', () => {
			const { port } = server.address()
			server.close(() => resolve(port))
		})
	})
}

// Our provider and what it says of its tree: path to value (undefined for a node).
class Provider extends Program {
	constructor(programs, port, ports = 4) {
		super(`${programs}/ember_test_provider`, [String(port), String(ports)])
		this.port = port
	}
	async ready() {
		await this.line(`listening ${this.port}`)
		return this
	}
	async tree() {
		this.lines.length = 0
		this.say('tree')
		await until(() => this.lines.includes('end'), 'the tree')
		const tree = {}
		for (const line of this.lines.splice(0, this.lines.indexOf('end') + 1).slice(0, -1)) {
			const at = line.indexOf('=')
			if (at < 0) tree[line] = null
			else tree[line.slice(0, at)] = line.slice(at + 1)
		}
		return tree
	}
	async done(command) {
		this.say(command)
		await this.line('done')
	}
}

// Values as our programs print them.
const printed = (value) => (typeof value === 'boolean' ? (value ? '1' : '0') : String(value))
const sorted = (tree) => Object.fromEntries(Object.entries(tree).sort(([a], [b]) => (a < b ? -1 : 1)))

module.exports = { check, results, equal, same, until, destinations, Program, Provider, freePort, printed, sorted }
