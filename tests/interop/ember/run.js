// node run.js FOLDER_OF_OUR_TEST_PROGRAMS
'use strict'
const fs = require('fs')
const path = require('path')
const { check, equal, results, destinations } = require('./support')

// Tests that the table names and that are not there.
function missingTests() {
	const folder = path.join(__dirname, '../../platform')
	const files = fs.readdirSync(folder).filter((name) => name.startsWith('test_ember_'))
	const tests = files.map((name) => fs.readFileSync(path.join(folder, name), 'utf8')).join('\n')
	const table = fs.readFileSync(path.join(__dirname, '../README.md'), 'utf8')
	const named = [...table.matchAll(/`([a-z0-9]+(?:_[a-z0-9]+){3,})`/g)].map((match) => match[1])
	if (named.length < 30) throw new Error('the table is not read')
	return named.filter((name) => !tests.includes(`, ${name})`))
}

async function main() {
	const programs = process.argv[2]
	await Promise.all([
		require('./provider_with_emberplus_connection')(programs),
		require('./provider_with_node_emberplus')(programs),
		require('./consumer_with_servers')(programs),
		require('./example_unit')(programs),
	])
	await check('every test that the table of quirks names is there', async () => equal(missingTests(), []))
	await check('no connection left this machine', async () => equal([...destinations], ['127.0.0.1']))
	const { passed, failed } = results()
	console.log(`${passed} passed, ${failed} failed`)
	process.exit(failed === 0 && passed > 0 ? 0 : 1)
}
main().catch((error) => {
	console.log(error)
	console.log(`${results().passed} passed, ${results().failed + 1} failed`)
	process.exit(1)
})
