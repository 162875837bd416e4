// What is done to the example unit, step by step. `set` [parameter, value] is answered with `answer`, which is the value if it
// is not given; `foreign` likewise, with a value of another type; `control` is a command of zelctl; `then` are the other
// parameters that change; `states` is what the unit itself says afterwards: [table, name, member, value].
'use strict'

const disabled = 0
const input = 1
const output = 2
const lists = (node, triggers, active, status) => ({
	[`${node}/output triggers`]: triggers,
	[`${node}/active triggers`]: active,
	[`${node}/status`]: status,
})
const row = (...cells) => [cells]

const steps = {
	'types of every class of port are set': [
		{ set: ['physical/gpio 7/type', input], states: row('ports', 'GPI 7', 'type', 'input') },
		{ set: ['physical/gpio 7/type', output], states: row('ports', 'GPO 7', 'type', 'output') },
		{
			set: ['physical/gpio 1/type', output],
			then: { 'physical/gpio 1/input functions': '', 'physical/gpio 1/output triggers': '', 'physical/gpio 1/input mode': 0 },
			states: row('ports', 'GPO 1', 'type', 'output'),
		},
		{
			set: ['physical/gpio 9/type', disabled],
			then: { 'physical/gpio 9/output triggers': '' },
			states: row('ports', 'Physical Port 9', 'type', 'disabled'),
		},
		{
			set: ['physical/cough 1/type', disabled],
			then: { 'physical/cough 1/input functions': '' },
			states: row('ports', 'Cough Port 1', 'type', 'disabled'),
		},
		{ set: ['physical/cough 1/type', input], states: row('ports', 'COUGH 1', 'type', 'input') },
		{ set: ['virtual/vgpio 4/type', input], states: row('ports', 'vGPI 4', 'type', 'input') },
		{ set: ['virtual/vgpio 5/type', output], states: row('ports', 'vGPO 5', 'type', 'output') },
		{
			set: ['virtual/vgpio 1/type', input],
			then: { 'virtual/vgpio 1/output triggers': '' },
			states: row('ports', 'vGPI 1', 'type', 'input'),
		},
		// A port that is disabled takes its own trigger out of every list.
		{
			set: ['user buttons/button 3/type', disabled],
			then: { 'user buttons/led 3/output triggers': '' },
			states: row('ports', 'User Button 3', 'type', 'disabled'),
		},
		{ set: ['user buttons/button 3/type', input], states: row('ports', 'User Button 3', 'type', 'input') },
		{
			set: ['user buttons/button 1/type', disabled],
			then: { 'user buttons/button 1/input functions': '', 'user buttons/led 1/output triggers': '' },
			states: row('ports', 'User Button 1', 'type', 'disabled'),
		},
		{
			set: ['user buttons/led 2/type', disabled],
			then: { 'user buttons/led 2/output triggers': '' },
			states: row('ports', 'User LED 2', 'type', 'disabled'),
		},
		{ set: ['user buttons/led 2/type', output], states: row('ports', 'User LED 2', 'type', 'output') },
		{ set: ['user buttons/led 3/type', output], states: row('ports', 'User LED 3', 'type', 'output') },
	],
	'refused types are shown as written and change nothing': [
		{ set: ['physical/cough 2/type', output], states: row('ports', 'COUGH 2', 'type', 'input') },
		{ set: ['user buttons/button 2/type', output], states: row('ports', 'User Button 2', 'type', 'input') },
		{ set: ['user buttons/led 2/type', input], states: row('ports', 'User LED 2', 'type', 'output') },
		{ set: ['physical/gpio 8/type', 7], states: row('ports', 'Physical Port 8', 'type', 'disabled') },
	],
	'input modes are set, and refused where there is no such mode or no input': [
		{ set: ['physical/gpio 2/input mode', 0], states: row('ports', 'GPI 2', 'mode', 'latching') },
		{ set: ['user buttons/button 4/input mode', 1], states: row('ports', 'User Button 4', 'mode', 'momentary') },
		{ set: ['physical/gpio 2/input mode', 5], states: row('ports', 'GPI 2', 'mode', 'latching') },
		{ set: ['physical/gpio 10/input mode', 1], states: row('ports', 'GPO 10', 'mode', null) },
		{ set: ['physical/cough 1/input mode', 0], answer: 1, states: row('ports', 'COUGH 1', 'mode', 'momentary') },
	],
	'lists of triggers drive outputs, with and without inversion': [
		{
			set: ['physical/gpio 10/output triggers', 'On Air, !Eth Link Down'],
			// The input mode that was refused is put right now that the port publishes its values.
			then: {
				'physical/gpio 10/input mode': 0,
				...lists('physical/gpio 10', 'On Air, !Eth Link Down', '!Eth Link Down', true),
			},
			states: row('pins', 'GPO 10', 'level', 1),
		},
		{
			set: ['physical/gpio 10/output triggers', ''],
			then: lists('physical/gpio 10', '', '', false),
			states: row('pins', 'GPO 10', 'level', 0),
		},
		{
			set: ['physical/gpio 10/output triggers', 'Door Bell,  !On Air'],
			then: lists('physical/gpio 10', 'Door Bell,  !On Air', '!On Air', true),
			states: row('pins', 'GPO 10', 'level', 1),
		},
		{
			set: ['virtual/vgpio 2/output triggers', '!GPI 2'],
			then: lists('virtual/vgpio 2', '!GPI 2', '!GPI 2', true),
			states: row('ports', 'vGPO 2', 'state', true),
		},
		{
			set: ['user buttons/led 4/output triggers', '!Door Bell'],
			then: lists('user buttons/led 4', '!Door Bell', '!Door Bell', true),
			states: row('ports', 'User LED 4', 'state', true),
		},
		{ set: ['physical/relay 6/output triggers', 'On Air, Door Bell'], states: row('relays', 'Relay 6', 'state', false) },
	],
	'refused lists are shown as written and change nothing': [
		{ set: ['physical/gpio 10/output triggers', 'Door Bell, Nobody'], states: row('pins', 'GPO 10', 'level', 1) },
		{ set: ['physical/gpio 10/output triggers', 'Phone Ringing ,Door Bell'], states: row('pins', 'GPO 10', 'level', 1) },
		{ set: ['physical/relay 7/output triggers', '!On Air'], states: row('pins', 'Relay 7', 'level', 0) },
		{ set: ['user buttons/button 4/input functions', 'Record, Nobody'] },
	],
	'an event reaches the lists that were set, and both are told': [
		{ set: ['physical/gpio 10/output triggers', 'On Air'], then: lists('physical/gpio 10', 'On Air', '', false) },
		{
			control: ['event', 'On Air', 'on'],
			then: {
				...lists('physical/gpio 10', 'On Air', 'On Air', true),
				...lists('physical/relay 6', 'On Air, Door Bell', 'On Air', true),
				...lists('physical/relay 2', 'On Air', 'On Air', true),
			},
			states: row('pins', 'Relay 6', 'level', 1),
		},
		{
			control: ['event', 'On Air', 'off'],
			then: {
				...lists('physical/gpio 10', 'On Air', '', false),
				...lists('physical/relay 6', 'On Air, Door Bell', '', false),
				...lists('physical/relay 2', 'On Air', '', false),
			},
			states: row('pins', 'Relay 6', 'level', 0),
		},
	],
	'lists of handlers are shown as written': [
		{ set: ['physical/gpio 3/input functions', 'Record, Play'] },
		{ set: ['virtual/vgpio 3/input functions', 'Record'] },
		// The type that was refused is put right now that the port publishes its values.
		{ set: ['physical/cough 2/input functions', 'Talkback'], then: { 'physical/cough 2/type': input } },
		{
			control: ['connect', 'GPI 5', 'Record'],
			then: { 'physical/gpio 5/input functions': 'Record, Dim Monitors', 'physical/gpio 5/output triggers': '' },
		},
	],
	'outputs are switched, and nothing else is': [
		{ set: ['physical/gpio 7/status', true], states: row('pins', 'GPO 7', 'level', 1) },
		{ set: ['physical/gpio 7/status', false], states: row('pins', 'GPO 7', 'level', 0) },
		{ set: ['virtual/vgpio 5/status', true], states: row('ports', 'vGPO 5', 'state', true) },
		{ set: ['user buttons/led 3/status', true], states: row('ports', 'User LED 3', 'state', true) },
		{ set: ['physical/gpio 4/status', true], states: row('ports', 'GPI 4', 'state', false) },
		{ set: ['physical/gpio 8/status', true], states: row('ports', 'Physical Port 8', 'state', false) },
		{ set: ['physical/relay 1/status', true], answer: false, states: row('pins', 'Relay 1', 'level', 0) },
	],
	'sources that are not there are shown as written': [
		{ set: ['virtual/vgpio 4/vgpio source', 'Nowhere'], states: row('ports', 'vGPI 4', 'source', '-') },
		{ set: ['virtual/vgpio 4/vgpio source', ''], states: row('ports', 'vGPI 4', 'source', '-') },
		{ set: ['virtual/vgpio 5/vgpio source', 'Nowhere'], states: row('ports', 'vGPO 5', 'type', 'output') },
	],
	'values of a wrong type, and of what is read only, are answered with what stands': [
		{ foreign: ['physical/gpio 7/status', 'on'], answer: false, states: row('pins', 'GPO 7', 'level', 0) },
		{ foreign: ['physical/gpio 7/output triggers', 5], answer: '' },
		{ foreign: ['physical/gpio 2/type', 'output'], answer: input, states: row('ports', 'GPI 2', 'type', 'input') },
		{ set: ['physical/relay 2/active triggers', 'x'], answer: '' },
		{ set: ['handlers/h-0', 'x'], answer: 'Record', states: row('handlers', 'Record', 'id', 0) },
		{ set: ['triggers/t-35', 'x'], answer: 'On Air', states: row('triggers', 'On Air', 'id', 35) },
	],
}

module.exports = { steps }
