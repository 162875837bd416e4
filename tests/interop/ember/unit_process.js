// A unit of the test's own, made from the studio example in a temporary folder.
'use strict'
const { execFile, execFileSync } = require('child_process')
const fs = require('fs')
const os = require('os')
const path = require('path')
const { until, Program } = require('./support')

const scripts = path.join(__dirname, '../../../scripts')

class ExampleUnit {
	static async made(programs, port, webPort) {
		const unit = new ExampleUnit()
		unit.folder = fs.mkdtempSync(path.join(os.tmpdir(), 'zel-interop-'))
		unit.root = path.join(unit.folder, 'unit')
		unit.bin = path.join(programs, '../bin')
		unit.port = port
		execFileSync('sh', [path.join(scripts, 'new_unit.sh'), unit.root, String(port), String(webPort)])
		return unit
	}
	async start() {
		const log = path.join(this.root, 'unit.log')
		this.process = new Program(`${this.bin}/zel_unit`, ['--root', this.root], { ZEL_LOG_FILE: '/unit.log' })
		await until(async () => {
			if (this.process.ended) throw new Error(`the unit has ended: ${fs.readFileSync(log)}`)
			return (await this.zelctl(['unit'])).status === 0
		}, 'the unit')
	}
	zelctl(words) {
		return new Promise((resolve) => {
			execFile(`${this.bin}/zelctl`, ['--root', this.root, ...words], (error, output, errors) => {
				resolve({ status: error ? error.code : 0, output, errors })
			})
		})
	}
	// Must succeed.
	async control(...words) {
		const { status, output, errors } = await this.zelctl(words)
		if (status !== 0) throw new Error(`zelctl ${words.join(' ')}: ${errors}`)
		return output
	}
	// A row of one of zelctl's tables by its name.
	async row(table, name) {
		const rows = JSON.parse(await this.control('--json', table))[table]
		const found = rows.find((row) => row.name === name)
		if (!found) throw new Error(`there is no ${name} among the ${table}`)
		return found
	}
	serial() {
		return fs.readFileSync(path.join(this.root, 'etc/zel/serial'), 'utf8').trim()
	}
	saved() {
		return fs.readFileSync(path.join(this.root, 'mnt/data/config/config.json'), 'utf8')
	}
	async version() {
		const text = execFileSync(`${this.bin}/zel_unit`, ['--version'], { encoding: 'utf8' })
		return text.trim().split(' ').pop()
	}
	async stop(signal) {
		await this.process.stop(signal)
	}
	async remove() {
		await this.stop('SIGTERM')
		fs.rmSync(this.folder, { recursive: true })
	}
}


module.exports = { ExampleUnit }
