// node run.js FOLDER_OF_OUR_TEST_PROGRAMS
'use strict'
const { check, equal, results, destinations } = require('./support')

async function main() {
	const programs = process.argv[2]
	await Promise.all([
		require('./provider_with_emberplus_connection')(programs),
		require('./provider_with_node_emberplus')(programs),
		require('./consumer_with_servers')(programs),
		require('./example_unit')(programs),
	])
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
