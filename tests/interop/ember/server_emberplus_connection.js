// A server of the package emberplus-connection: node server_emberplus_connection.js PORT [PORTS]
//   value PATH=TEXT   (a path of identifiers)      online PATH=true|false      show PATH      quit
'use strict'
const {
	EmberServer,
	Model: { NumberedTreeNodeImpl, EmberNodeImpl, ParameterImpl, ParameterType, ParameterAccess },
} = require('emberplus-connection')
const { serve, unitTree } = require('./server_tree')

const types = { string: ParameterType.String, enumeration: ParameterType.Enum, boolean: ParameterType.Boolean, integer: ParameterType.Integer }

function build(entries, paths, above = '') {
	const children = {}
	entries.forEach((entry, i) => {
		const path = above ? `${above}/${entry.name}` : entry.name
		const contents = entry.children
			? new EmberNodeImpl(entry.name)
			: new ParameterImpl(types[entry.kind], entry.name, undefined, entry.value, undefined, undefined,
				entry.isReadOnly ? ParameterAccess.Read : ParameterAccess.ReadWrite, undefined, entry.entries)
		children[i + 1] = new NumberedTreeNodeImpl(i + 1, contents, entry.children && build(entry.children, paths, path))
		paths[path] = children[i + 1]
	})
	return children
}

async function main() {
	const paths = {}
	const server = new EmberServer(Number(process.argv[2]), '127.0.0.1')
	server.on('error', () => {})
	server.on('clientError', () => {})
	server.onSetValue = async (parameter, value) => {
		server.update(parameter, { value })
		return true
	}
	await server.init(build(unitTree(Number(process.argv[3] || 4)), paths))
	serve(
		(path, value) => server.update(paths[path], { value }),
		(path, isOnline) => server.update(paths[path], { isOnline }),
		(path) => paths[path].contents.value
	)
}
main()
