/** `lidcam view` as a process, with settings of its own, and the commands beside it. */

import { execFile, spawn } from 'node:child_process';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { promisify } from 'node:util';

const PROGRAM = process.env.VIEWER_TEST_PROGRAM;
const START_LIMIT = 20000; // milliseconds
const END_LIMIT = 10000;

if (!PROGRAM) throw new Error('VIEWER_TEST_PROGRAM has to name the program: run scripts/test-viewer');

const run = promisify(execFile);

export class Program {
  /** @param {string[]} cameras @param {string[]} options of `lidcam view` */
  static async start(cameras, options = []) {
    const program = new Program();
    program.cameras = cameras;
    program.home = await mkdtemp(join(tmpdir(), 'lidcam-page-'));
    await program.launch(options);
    return program;
  }

  /** @param {string[]} options */
  async launch(options = []) {
    const chosen = this.cameras.flatMap((camera) => ['--camera', camera]);
    this.child = spawn(PROGRAM, ['view', '--no-browser', ...chosen, ...options], {
      env: this.environment(),
      stdio: ['ignore', 'ignore', 'pipe'],
    });
    process.once('exit', () => this.child.kill('SIGKILL'));
    this.messages = '';
    this.child.stderr.on('data', (data) => {
      this.messages += data;
    });
    this.ended = new Promise((resolve) => {
      this.child.once('exit', (status, signal) => resolve({ status, signal }));
    });
    this.address = await this.printedAddress();
    this.origin = new URL(this.address).origin;
  }

  async printedAddress() {
    for (const begun = Date.now(); Date.now() - begun < START_LIMIT; ) {
      const found = this.messages.match(/http:\/\/\S+token=\S+/);
      if (found) return found[0];
      if (this.child.exitCode !== null) break;
      await new Promise((resolve) => {
        setTimeout(resolve, 20);
      });
    }
    throw new Error(`lidcam view printed no address: ${this.messages}`);
  }

  /** Both folders are its own: `lidcam set` finds it by a socket in the second. */
  environment() {
    return { ...process.env, LIDCAM_HOME: this.home, XDG_RUNTIME_DIR: this.home };
  }

  /** Runs another command of the program beside it, for its first camera. @returns {Promise<string>} its output */
  async command(...words) {
    const { stdout } = await run(PROGRAM, [...words, '--camera', this.cameras[0]], { env: this.environment() });
    return stdout;
  }

  /** @param {string} name @returns {Promise<number>} the value that `lidcam get` prints */
  async stored(name) {
    const text = await this.command('get', name);
    return Number(text.trim().split('=').at(-1));
  }

  /** Ends it as Ctrl-C does. @returns {Promise<{status: number, signal: string}>} */
  async end() {
    this.child.kill('SIGINT');
    const killer = setTimeout(() => this.child.kill('SIGKILL'), END_LIMIT);
    const end = await this.ended;
    clearTimeout(killer);
    return end;
  }

  async close() {
    const end = this.child.exitCode === null ? await this.end() : await this.ended;
    await rm(this.home, { recursive: true, force: true });
    return end;
  }
}
