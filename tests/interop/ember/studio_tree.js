// What a controller must find in a unit made from the studio example, written down by hand from docs/ember_tree.md and the
// example's wiring: nothing here is taken from a unit.
'use strict'

const types = '[disabled|input|output]'
const coughTypes = '[disabled|input]'
const modes = '[latching|momentary]'

const rows = {
	port: (p) => ({
		type: `enum ${p.type || 0} ${types} rw`,
		'input functions': `string ${p.functions || ''} rw`,
		'output triggers': `string ${p.triggers || ''} rw`,
		'active triggers': `string ${p.active || ''} r`,
		'input mode': `enum ${p.mode || 0} ${modes} rw`,
		status: `boolean ${p.status || false} rw`,
	}),
	cough: (p) => ({
		type: `enum ${p.type || 0} ${coughTypes} rw`,
		'input functions': `string ${p.functions || ''} rw`,
		'input mode': `enum ${p.mode} ${modes} r`,
		status: 'boolean false rw',
	}),
	relay: (r) => ({
		'output triggers': `string ${r.triggers || ''} rw`,
		'active triggers': 'string  r',
		status: 'boolean false r',
	}),
	virtual: (p) => ({
		type: `enum ${p.type || 0} ${types} rw`,
		'input functions': `string ${p.functions || ''} rw`,
		'output triggers': `string ${p.triggers || ''} rw`,
		'active triggers': `string ${p.active || ''} r`,
		'vgpio source': `string ${p.source || ''} rw`,
		status: `boolean ${p.status || false} rw`,
	}),
	button: (p) => ({
		type: `enum ${p.type || 0} ${types} rw`,
		'input functions': `string ${p.functions || ''} rw`,
		'input mode': `enum ${p.mode || 0} ${modes} rw`,
		status: 'boolean false rw',
	}),
	led: (p) => ({
		type: `enum ${p.type || 0} ${types} rw`,
		'output triggers': `string ${p.triggers || ''} rw`,
		'active triggers': `string ${p.active || ''} r`,
		status: `boolean ${p.status || false} rw`,
	}),
}

const input = 1
const output = 2
const momentary = 1

// An input shows its own trigger until the port next publishes its values.
const wiring = () => ({
	'physical/gpio 1': ['port', { type: input, functions: 'Record', triggers: 'GPI 1', mode: momentary }],
	'physical/gpio 2': ['port', { type: input, functions: 'Play', triggers: 'GPI 2', mode: momentary }],
	'physical/gpio 3': ['port', { type: input, functions: 'Stop', triggers: 'GPI 3', mode: momentary }],
	'physical/gpio 4': ['port', { type: input, functions: 'Mic Live', triggers: 'GPI 4', mode: momentary }],
	'physical/gpio 5': ['port', { type: input, functions: 'Dim Monitors', triggers: 'GPI 5' }],
	'physical/gpio 6': ['port', { type: input, functions: 'Talkback', triggers: 'GPI 6' }],
	'physical/gpio 7': ['port', {}],
	'physical/gpio 8': ['port', {}],
	'physical/gpio 9': ['port', { type: output, triggers: 'On Air' }],
	'physical/gpio 10': ['port', { type: output, triggers: 'Phone Ringing, Door Bell' }],
	'physical/gpio 11': ['port', { type: output, triggers: '!Eth Link Down', active: '!Eth Link Down', status: true }],
	'physical/gpio 12': ['port', {}],
	'physical/gpio 13': ['port', {}],
	'physical/gpio 14': ['port', {}],
	'physical/gpio 15': ['port', {}],
	'physical/gpio 16': ['port', {}],
	'physical/cough 1': ['cough', { type: input, functions: 'Mute Mic', mode: momentary }],
	'physical/cough 2': ['cough', { type: input, functions: 'Mute Mic', mode: momentary }],
	'physical/relay 1': ['relay', { triggers: 'GPI 1' }],
	'physical/relay 2': ['relay', { triggers: 'On Air' }],
	'physical/relay 3': ['relay', { triggers: 'GPI 2' }],
	'physical/relay 4': ['relay', { triggers: 'Phone Ringing, Door Bell' }],
	'physical/relay 5': ['relay', { triggers: 'Eth Link Down' }],
	'physical/relay 6': ['relay', {}],
	'physical/relay 7': ['relay', {}],
	'physical/relay 8': ['relay', {}],
	'virtual/vgpio 1': ['virtual', { type: output, triggers: 'On Air' }],
	'virtual/vgpio 2': ['virtual', { type: output, triggers: 'GPI 1' }],
	'virtual/vgpio 3': ['virtual', { type: input, functions: 'Talkback', triggers: 'vGPI 3' }],
	'virtual/vgpio 4': ['virtual', {}],
	'virtual/vgpio 5': ['virtual', {}],
	'virtual/vgpio 6': ['virtual', {}],
	'virtual/vgpio 7': ['virtual', {}],
	'virtual/vgpio 8': ['virtual', {}],
	'user buttons/button 1': ['button', { type: input, functions: 'Talkback' }],
	'user buttons/button 2': ['button', { type: input, functions: 'Dim Monitors' }],
	'user buttons/button 3': ['button', { type: input }],
	'user buttons/button 4': ['button', { type: input }],
	'user buttons/led 1': ['led', { type: output, triggers: 'User Button 1' }],
	'user buttons/led 2': ['led', { type: output, triggers: 'User Button 2' }],
	'user buttons/led 3': ['led', { type: output, triggers: 'User Button 3' }],
	'user buttons/led 4': ['led', { type: output, triggers: 'User Button 4' }],
})

const handlers = ['Record', 'Play', 'Stop', 'Mic Live', 'Mute Mic', 'Talkback', 'Dim Monitors']
const numbered = (name, count) => Array.from({ length: count }, (_, i) => `${name} ${i + 1}`)
const triggers = [
	'Eth Link Down', 'AoIP Link Down', 'AC Power Off', 'DC Power Off', 'PTP Sync Lost',
	...numbered('GPI', 16), ...numbered('COUGH', 2), ...numbered('vGPI', 8), ...numbered('User Button', 4),
	'On Air', 'Phone Ringing', 'Door Bell', 'Fader Start 1', 'Fader Start 2',
]

// The whole tree, path to line. `changes`: node below "gpio" to [kind, values] in place of the example's wiring.
function studioTree({ serial, version, name = 'Studio 1', changes = {}, sources = {} }) {
	const tree = {
		'/unit': 'node',
		'/unit/identity': 'node',
		'/unit/identity/product': 'string ZEL-SOFT r',
		'/unit/identity/serial': `string ${serial} r`,
		'/unit/identity/name': `string ${name} r`,
		'/unit/identity/version': `string ${version} r`,
		'/unit/gpio': 'node',
	}
	for (const node of ['physical', 'virtual', 'user buttons', 'handlers', 'triggers', 'vgpio sources'])
		tree[`/unit/gpio/${node}`] = 'node'
	for (const [node, [kind, values]] of Object.entries({ ...wiring(), ...changes })) {
		tree[`/unit/gpio/${node}`] = 'node'
		for (const [parameter, row] of Object.entries(rows[kind](values))) tree[`/unit/gpio/${node}/${parameter}`] = row
	}
	handlers.forEach((handler, id) => (tree[`/unit/gpio/handlers/h-${id}`] = `string ${handler} r`))
	triggers.forEach((trigger, id) => (tree[`/unit/gpio/triggers/t-${id}`] = `string ${trigger} r`))
	for (const [source, value] of Object.entries(sources)) tree[`/unit/gpio/vgpio sources/${source}`] = `string ${value} r`
	return tree
}

// The values that the lines of a tree tell.
function valuesOf(tree) {
	const out = {}
	for (const [path, row] of Object.entries(tree)) {
		const [, kind, text] = /^(\w+)(?: (.*) (?:r|rw))?$/.exec(row)
		if (kind === 'enum') out[path] = Number(text.split(' ')[0])
		else if (kind === 'boolean') out[path] = text === 'true'
		else if (kind === 'string') out[path] = text
	}
	return out
}

module.exports = { studioTree, valuesOf }
