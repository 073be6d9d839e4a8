'use strict';
// What the Node.js tests of the Open Protocol server share: hytorcd and the simulator as
// children that never outlive the test, waiting on a condition, a free loopback port.
const { spawn } = require('child_process');
const [fs, net, os, path] = ['fs', 'net', 'os', 'path'].map(require);

const children = [];
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

function run(program, args) {
  const child = spawn(path.join(process.env.HYTORC_BUILD_DIR || 'build', 'bin', program), args);
  Object.assign(child, { out: '', err: '' });
  child.stdout.on('data', (d) => { child.out += d; });
  child.stderr.on('data', (d) => { child.err += d; });
  children.push(child);
  return child;
}

// The first truthy value of `check`.
async function until(what, check, ms = 15000) {
  for (const end = Date.now() + ms; ; await sleep(20)) {
    const value = check();
    if (value) return value;
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
  }
}

const freePort = () => new Promise((resolve) => {
  const probe = net.createServer().listen(0, '127.0.0.1', () => {
    const { port } = probe.address();
    probe.close(() => resolve(port));
  });
});

// Runs `main(dir)` in a temporary folder; on failure, the children's stderr.
function runTest(what, main) {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'op-test-'));
  const stopAll = () => children.forEach((child) => child.kill('SIGTERM'));
  process.on('exit', stopAll);
  main(dir).then(() => console.log(`PASS: ${what}`), (error) => {
    console.error(`FAIL: ${error.stack}`);
    for (const child of children) console.error(`--- ${child.spawnfile}\n${child.err}`);
    process.exitCode = 1;
  }).finally(() => {
    stopAll();
    fs.rmSync(dir, { recursive: true, force: true });
  });
}

module.exports = { run, until, sleep, freePort, runTest };
