// A server of the package node-emberplus: node server_node_emberplus.js PORT [PORTS]
//   value PATH=TEXT   (a path of identifiers)      online PATH=true|false      show PATH      quit
'use strict'
const { EmberServer, EmberServerEvent, LoggingService } = require('node-emberplus')
const { serve, unitTree } = require('./server_tree')

const types = { string: 'string', enumeration: 'enum', boolean: 'boolean', integer: 'integer' }

// `numbers` takes the path of numbers of each path of identifiers: this server knows only those.
function json(entries, numbers, above = [], names = []) {
	return entries.map((entry, i) => {
		const number = i + 1
		const path = [...above, number]
		const identifiers = [...names, entry.name]
		numbers[identifiers.join('/')] = path.join('.')
		const common = { number, identifier: entry.name, path: path.join('.') }
		if (entry.children) return { ...common, children: json(entry.children, numbers, path, identifiers) }
		const access = entry.isReadOnly ? 'read' : 'readWrite'
		return { ...common, value: entry.value, type: types[entry.kind], enumeration: entry.entries, access }
	})
}

async function main() {
	const numbers = {}
	const tree = EmberServer.createTreeFromJSON(json(unitTree(Number(process.argv[3] || 4)), numbers))
	const server = new EmberServer({ host: '127.0.0.1', port: Number(process.argv[2]), tree, logger: new LoggingService(1) })
	server.on(EmberServerEvent.ERROR, () => {})
	server.on(EmberServerEvent.CLIENT_ERROR, () => {})
	await server.listen()
	const at = (path) => server.tree.getElementByPath(numbers[path])
	serve(
		(path, value) => server.setValue(at(path), value),
		(path, isOnline) => {
			at(path).contents.isOnline = isOnline
			server.updateSubscribers(at(path).getPath(), server.createResponse(at(path)))
		},
		(path) => at(path).contents.value
	)
}
main()
