'use strict';
// The station's web page in a real browser (Debian's Chromium, headless, driven by puppeteer-core)
// against hytorcd over the tool simulator: a result on the station page within a second of its
// commit, the results page's filters and download (the bytes of `hytorc results`), and the SPC
// page's charts and figures, checked against a computation of our own over the exported rows.
// Run by CTest with HYTORC_BUILD_DIR set; screenshots go to HYTORC_BUILD_DIR/web-screenshots/.
const assert = require('assert');
const { spawn, spawnSync, execFileSync } = require('child_process');
const [fs, net, os, path] = ['fs', 'net', 'os', 'path'].map(require);
const puppeteer = require('puppeteer-core');

const build = process.env.HYTORC_BUILD_DIR || 'build';
const bin = path.join(build, 'bin');
const shots = path.join(build, 'web-screenshots');
const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'web-test-'));
const journal = path.join(dir, 'r.db');
const children = [];
const c_viewport = { width: 1280, height: 800 };

function run(program, args) {
  const child = spawn(path.join(bin, program), args, { stdio: ['pipe', 'pipe', 'pipe'] });
  Object.assign(child, { out: '', err: '' });
  child.stdout.on('data', (d) => { child.out += d; });
  child.stderr.on('data', (d) => { child.err += d; });
  children.push(child);
  return child;
}

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function until(what, check, ms = 20000) {
  for (const end = Date.now() + ms; !(await check()); await sleep(50)) {
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
  }
}

const freePort = () => new Promise((resolve) => {
  const probe = net.createServer().listen(0, '127.0.0.1', () => {
    const { port } = probe.address();
    probe.close(() => resolve(port));
  });
});

// Known torques: [program, convertedTorque (x 100), unit, status]. 11: a spread without limits,
// 12: one result, 13: all equal (no spread), 14: N·m and ft·lb mixed.
const c_known = [
  [11, 1000, 'N.m', 'PASSED'], [11, 1200, 'N.m', 'PASSED'], [11, 1450, 'N.m', 'FAILED'], [11, 1630, 'N.m', 'PASSED'],
  [12, 2500, 'N.m', 'PASSED'],
  [13, 2000, 'N.m', 'PASSED'], [13, 2000, 'N.m', 'PASSED'], [13, 2000, 'N.m', 'FAILED'],
  [14, 10000, 'N.m', 'PASSED'], [14, 10000, 'FTLB', 'PASSED'], [14, 7375, 'ft.lb', 'FAILED'],
];

function insertKnown() {
  const rows = JSON.stringify(c_known);
  const script = `
import json, sqlite3, sys, time
db = sqlite3.connect(sys.argv[1], timeout=10)
now = int(time.time() * 1000)
for prog, torque, unit, status in json.loads(sys.argv[2]):
    db.execute("INSERT INTO results (receivedAt, station, toolSerial, date, time, duration, jobId, profileName, mode,"
               " snugTorqueAngle, torqueUnit, direction, status, convertedTorque, angleUnit, progId, eventCountNo)"
               " VALUES (?, 'T1', 'HYT24A0137', '2026-11-23', '08:00:00', 2000, 'J', 'P', 'TQ', '0', ?, 'CW', ?, ?,"
               " 'DEG', ?, 1)", (now, unit, status, torque, prog))
db.commit()`;
  execFileSync('python3', ['-c', script, journal, rows]);
}

// Our own figures over exported rows: N·m, sample standard deviation, the NOK share.
function expectedSpc(rows) {
  const nm = rows.map((r) => r.convertedTorque / 100 * (/^ft\.?lb$/i.test(r.torqueUnit) ? 1.3558179483 : 1));
  const n = nm.length;
  const mean = nm.reduce((a, b) => a + b, 0) / n;
  const stdev = n > 1 ? Math.sqrt(nm.reduce((a, x) => a + (x - mean) ** 2, 0) / (n - 1)) : null;
  const nokRate = rows.filter((r) => !/^(PASSED|OK)$/i.test(r.status)).length / n;
  return { n, mean, stdev, min: Math.min(...nm), max: Math.max(...nm), nokRate };
}

function near(actual, expected, what) {
  if (expected === null) return assert.strictEqual(actual, null, what);
  assert.ok(Math.abs(actual - expected) < 1e-9 * Math.max(1, Math.abs(expected)), `${what}: ${actual} != ${expected}`);
}

async function stationPage(browser, base, sim) {
  const page = await browser.newPage();
  await page.setViewport(c_viewport);
  await page.goto(`${base}/`);
  await page.waitForFunction(() => document.getElementById('live').textContent === 'yes');
  await page.evaluate(() => {
    window.seen = {};
    new MutationObserver(() => {
      for (const tr of document.querySelectorAll('#results tbody tr.new')) window.seen[tr.dataset.id] ??= Date.now();
    }).observe(document.querySelector('#results tbody'), { childList: true });
  });
  sim.stdin.write('event\n');
  const row = await until('the result on the page', async () => {
    const rows = await page.evaluate(() => window.seen);
    return Object.keys(rows).length > 0;
  }).then(() => page.evaluate(() => window.seen));
  const [id, shownAt] = Object.entries(row)[0];
  const shownRow = await (await fetch(`${base}/api/results?after=${Number(id) - 1}&limit=1`)).json();
  const committedAt = Date.parse(shownRow.rows[0].receivedAt);
  assert.ok(shownAt - committedAt < 1000, `shown ${shownAt - committedAt} ms after its commit`);
  assert.match(await page.$eval('#tool-serial', (e) => e.textContent), /HYT24A0137/);
  await page.screenshot({ path: path.join(shots, 'station.png') });
  await page.close();
}

async function resultsPage(browser, base) {
  const page = await browser.newPage();
  await page.setViewport(c_viewport);
  await page.goto(`${base}/results.html`);
  await page.type('[name=program]', '11');
  await page.type('[name=status]', 'passed');
  await page.click('button[type=submit]');
  await page.waitForFunction(() => document.querySelectorAll('#results tbody tr').length === 3);
  const downloads = path.join(dir, 'downloads');
  const cdp = await page.createCDPSession();
  await cdp.send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: downloads });
  await page.click('#csv');
  const file = path.join(downloads, 'results.csv');
  await until('the download', () => fs.existsSync(file) && fs.readFileSync(file).length > 0);
  const exported = (format) => spawnSync(path.join(bin, 'hytorc'), ['results', '--journal', journal, '--program', '11',
    '--status', 'passed', '--format', format]).stdout;
  assert.ok(fs.readFileSync(file).equals(exported('csv')), 'the CSV download differs from hytorc results');
  assert.strictEqual(exported('csv').toString().trim().split('\n').length, 4);  // header and 3 rows
  const jsonl = await page.$eval('#jsonl', (a) => fetch(a.href).then((r) => r.text()));
  assert.strictEqual(jsonl, exported('jsonl').toString(), 'the JSON-lines download differs from hytorc results');
  await page.screenshot({ path: path.join(shots, 'results.png') });
  await page.close();
}

async function spcPage(browser, base, program) {
  const page = await browser.newPage();
  await page.setViewport(c_viewport);
  await page.goto(`${base}/spc.html?program=${program}`);
  await page.waitForFunction((p) => document.body.dataset.shown === String(p), {}, program);
  const text = await (await fetch(`${base}/api/spc?program=${program}`)).text();
  const cli = spawnSync(path.join(bin, 'hytorc'), ['spc', '--journal', journal, '--program', String(program), '--format', 'json']);
  assert.strictEqual(cli.stdout.toString(), text, 'hytorc spc and /api/spc differ');
  const api = JSON.parse(text);
  const rows = (await (await fetch(`${base}/api/results.jsonl?program=${program}`)).text())
    .trim().split('\n').map((line) => JSON.parse(line));
  const expected = expectedSpc(rows);
  for (const key of Object.keys(expected)) near(api[key], expected[key], `program ${program} ${key}`);
  for (const key of ['lsl', 'usl', 'target', 'cp', 'cpk']) assert.strictEqual(api[key], null, `${key} without limits`);
  const shown = await page.$$eval('#figures td[id]', (cells) => Object.fromEntries(cells.map((c) => [c.id, c.textContent])));
  assert.strictEqual(shown['figure-mean'], api.mean.toFixed(2));
  assert.strictEqual(shown['figure-stdev'], api.stdev === null ? '—' : api.stdev.toFixed(3));
  assert.strictEqual(shown['figure-cpk'], '—');
  const inked = await page.$$eval('canvas', (canvases) => canvases.map((c) => {
    const pixels = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;
    return pixels.some((v, i) => i % 4 === 3 && v !== 0);
  }));
  assert.deepStrictEqual(inked, [true, true], 'both charts drawn');
  if (program === 1) await page.screenshot({ path: path.join(shots, 'spc.png') });
  await page.close();
}

async function main() {
  fs.mkdirSync(shots, { recursive: true });
  const link = path.join(dir, 'tool');
  const sim = run('hytorc-sim', ['--link', link]);
  await until('the simulator', () => sim.out.includes('\n'));
  const port = await freePort();
  const daemon = run('hytorcd', ['--device', link, '--journal', journal, '--station', 'T1', '--op-port', '0',
    '--http-port', String(port)]);
  await until('the tool listened to', () => daemon.err.includes('listening'));
  insertKnown();
  for (let i = 0; i < 12; ++i) sim.stdin.write('event\n');  // a run of the simulator's program 1 for the SPC page
  const base = `http://127.0.0.1:${port}`;
  await until('the simulator\'s results', async () => (await (await fetch(`${base}/api/status`)).json()).lastId >= 23);
  const browser = await puppeteer.launch({
    executablePath: process.env.CHROMIUM || '/usr/bin/chromium', headless: true,
    args: (process.getuid() === 0 ? ['--no-sandbox'] : []).concat(['--disable-gpu', '--lang=en-US']),
  });
  try {
    await stationPage(browser, base, sim);
    await resultsPage(browser, base);
    for (const program of [11, 12, 13, 14, 1]) await spcPage(browser, base, program);
  } finally {
    await browser.close();
  }
  console.log('web page: station, results and SPC pages pass in Chromium');
}

main().then(() => { children.forEach((c) => c.kill('SIGTERM')); },
  (e) => { console.error(e); children.forEach((c) => c.kill('SIGKILL')); process.exitCode = 1; })
  .finally(() => fs.rmSync(dir, { recursive: true, force: true }));
