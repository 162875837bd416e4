// Clients of both packages behind one face: walk the tree, set, wait until everything said so far has arrived.
'use strict'
const { EmberClient: ConnectionPackageClient } = require('emberplus-connection')
const { EmberClient: NodePackageClient, EmberClientEvent, LoggingService } = require('node-emberplus')

const step = (path) => path.split('/').slice(1)

// An element as a line: "node", "enum 1 [disabled|input|output] rw", "string On Air r", "boolean false rw".
function line({ kind, value, entries, access }) {
	if (!kind) return 'node'
	const text = kind === 'enum' ? `${value} [${entries.split('\n').join('|')}]` : String(value)
	return `${kind} ${text} ${access}`
}

class ConnectionPackage {
	static async connected(port) {
		const self = new ConnectionPackage()
		self.losses = 0
		self.client = new ConnectionPackageClient('127.0.0.1', port)
		self.client.on('error', () => {})
		self.client.on('disconnected', () => self.losses++)
		await self.client.connect()
		return self
	}
	get isConnected() {
		return this.client.connected
	}
	async walk() {
		await this.client.expand(this.client.tree)
		return this.tree()
	}
	tree(each = (contents) => line(this.facts(contents))) {
		const out = {}
		const visit = (elements, above) => {
			for (const element of Object.values(elements || {})) {
				const path = `${above}/${element.contents.identifier}`
				if (element.contents.isOnline === false) continue
				out[path] = each(element.contents)
				visit(element.children, path)
			}
		}
		visit(this.client.tree, '')
		return out
	}
	facts(contents) {
		const kind = { ENUM: 'enum', STRING: 'string', BOOLEAN: 'boolean' }[contents.parameterType]
		const access = { READ: 'r', READ_WRITE: 'rw' }[contents.access]
		return { kind, access, value: contents.value, entries: contents.enumeration }
	}
	element(path) {
		let children = this.client.tree
		let found
		for (const identifier of step(path)) {
			found = Object.values(children || {}).find((element) => element.contents.identifier === identifier)
			if (!found) throw new Error(`${path} is not known`)
			children = found.children
		}
		return found
	}
	async set(path, value) {
		return (await (await this.client.setValue(this.element(path), value)).response).contents.value
	}
	// A value of another type than the parameter's.
	async setForeign(path, value) {
		const element = this.element(path)
		const type = { string: 'STRING', number: 'INTEGER', boolean: 'BOOLEAN' }[typeof value]
		const disguised = { ...element, contents: { ...element.contents, parameterType: type } }
		return (await (await this.client.setValue(disguised, value)).response).contents.value
	}
	async settle() {
		await (await this.client.getDirectory(this.element('/unit/identity/serial'))).response
	}
	close() {
		this.client.discard()
	}
}

class NodePackage {
	static async connected(port) {
		const self = new NodePackage()
		self.client = new NodePackageClient({ host: '127.0.0.1', port, logger: new LoggingService(1) })
		self.client.on(EmberClientEvent.ERROR, () => {})
		await self.client.connectAsync()
		await self.client.getDirectoryAsync()
		return self
	}
	get isConnected() {
		return this.client.isConnected()
	}
	// It does not tell of the loss, and does not connect again.
	get losses() {
		return this.isConnected ? 0 : 1
	}
	// The package's own expandAsync does not end on all trees.
	async walk() {
		const visit = async (parent) => {
			for (const child of parent.getChildren() || []) {
				if (child.isParameter()) continue
				await this.client.getDirectoryAsync(child)
				await visit(this.client.root.getElementByPath(child.getPath()))
			}
		}
		await visit(this.client.root)
		return this.tree()
	}
	tree(each = (contents) => line(this.facts(contents))) {
		const out = {}
		const visit = (parent, above) => {
			for (const child of parent.getChildren() || []) {
				if (child.contents.isOnline === false) continue
				const path = `${above}/${child.contents.identifier}`
				out[path] = each(child.contents)
				visit(child, path)
			}
		}
		visit(this.client.root, '')
		return out
	}
	facts(contents) {
		const kind = { 3: 'string', 4: 'boolean', 6: 'enum' }[contents.type]
		return { kind, access: { 1: 'r', 3: 'rw' }[contents.access], value: contents.value, entries: contents.enumeration }
	}
	element(path) {
		let found = this.client.root
		for (const identifier of step(path)) {
			found = (found.getChildren() || []).find((child) => child.contents.identifier === identifier)
			if (!found) throw new Error(`${path} is not known`)
		}
		return found
	}
	async set(path, value) {
		await this.client.setValueAsync(this.element(path), value)
		return this.element(path).contents.value
	}
	// The type that goes out is the value's own.
	setForeign(path, value) {
		return this.set(path, value)
	}
	async settle() {
		await this.client.getDirectoryAsync(this.element('/unit/identity/serial'))
	}
	close() {
		return this.client.disconnectAsync()
	}
}

// Paths of parameters to values, as a client knows them.
const values = (client) =>
	Object.fromEntries(Object.entries(client.tree((contents) => contents.value)).filter(([, value]) => value !== undefined))

module.exports = { packages: { 'emberplus-connection': ConnectionPackage, 'node-emberplus': NodePackage }, values }
