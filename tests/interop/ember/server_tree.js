// The tree that the foreign servers offer, like a unit's, and how they are steered.
'use strict'
const readline = require('readline')

const parameter = (name, kind, value, entries) => ({ name, kind, value, entries })
const fixed = (...of) => ({ ...parameter(...of), isReadOnly: true })
const port = (name) => ({
	name,
	children: [
		parameter('type', 'enumeration', 2, 'disabled\ninput\noutput'),
		parameter('input functions', 'string', 'Record'),
		parameter('output triggers', 'string', 'Trigger t-1, Trigger t-2'),
		parameter('active triggers', 'string', 'none'),
		parameter('input mode', 'enumeration', 0, 'latching\nmomentary'),
		parameter('status', 'boolean', true),
		parameter('delay', 'integer', 20),
		fixed('serial', 'string', 'A 17'),
	],
})
const ports = (name, count) => Array.from({ length: count }, (_, i) => port(`${name} ${i + 1}`))

function unitTree(count) {
	return [
		{
			name: 'unit',
			children: [
				{
					name: 'gpio',
					children: [
						{ name: 'physical', children: ports('gpio', count) },
						{ name: 'virtual', children: ports('vgpio', Math.ceil(count / 2)) },
					],
				},
			],
		},
	]
}

function typed(text) {
	if (text === 'true' || text === 'false') return text === 'true'
	return /^-?\d+$/.test(text) ? Number(text) : text
}

// Paths of the parameters to their values, as our consumer prints them.
function parameters(entries, above = '') {
	return Object.assign({}, ...entries.map((entry) => {
		const path = above ? `${above}/${entry.name}` : entry.name
		if (entry.children) return parameters(entry.children, path)
		return { [path]: typeof entry.value === 'boolean' ? String(Number(entry.value)) : String(entry.value) }
	}))
}

// `change` and `setOnline` get a path of identifiers and a value; `valueOf` gets a path.
function serve(change, setOnline, valueOf) {
	console.log('listening ' + process.argv[2])
	readline.createInterface({ input: process.stdin }).on('line', (line) => {
		if (line === 'quit') process.exit(0)
		const shown = /^show (.*)$/.exec(line)
		if (shown) return console.log(`${shown[1]}=${JSON.stringify(valueOf(shown[1]))}`)
		const [, verb, path, text] = /^(value|online) ([^=]*)=(.*)$/.exec(line)
		const act = verb === 'value' ? change : setOnline
		act(path, typed(text))
	})
}

module.exports = { unitTree, parameters, serve }
