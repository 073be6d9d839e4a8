'use strict';
// The real third-party Open Protocol client, node-nutrunner-open-library, against hytorcd over
// the tool simulator: subscription, results received and acknowledged, a program selected, the
// tool locked and unlocked, keep-alive, and the client's own reconnection after hytorcd restarts.
// Run by CTest with HYTORC_BUILD_DIR set; the package comes from `npm ci` (scripts/setup.sh).
const assert = require('assert');
const path = require('path');
const { OpenProtocolNutrunner } = require('node-nutrunner-open-library');
const { run, until, sleep, freePort, runTest } = require('../station.js');

let dir;
let link;

function startDaemon(port) {
  return run('hytorcd', ['--device', link, '--journal', path.join(dir, 'r.db'), '--station', 'T1',
    '--op-port', String(port), '--op-idle', '10']);
}

async function main(folder) {
  [dir, link] = [folder, path.join(folder, 'tool')];
  const sim = run('hytorc-sim', ['--link', link]);
  await until('the simulator', () => sim.out.includes('\n'));
  const port = await freePort();
  let daemon = startDaemon(port);
  await until('the tool listened to', () => daemon.err.includes('listening'));

  const client = new OpenProtocolNutrunner({ host: '127.0.0.1', port, brand: 'simulator', validateFrames: false });
  const results = [];
  let [subscriptions, disconnections] = [0, 0];
  client.on('spindleResult', (r) => results.push(r));
  client.on('revisionNegotiated', () => { subscriptions += 1; });
  client.on('disconnected', () => { disconnections += 1; });
  client.on('error', () => {});
  await client.connect();
  await until('the subscription', () => subscriptions === 1);

  // Two reports at once: the second 0061 goes out only after the client's 0062 for the first.
  sim.stdin.write('event\nevent\n');
  await until('two results', () => results.length === 2);
  assert.deepStrictEqual(results.map((r) => r.tighteningId), ['0000000001', '0000000002']);
  const { controllerName, cellId, paramSetId, torqueTarget } = results[0];
  assert.deepStrictEqual({ controllerName, cellId, paramSetId, torqueTarget },  // P1: 120 ft·lb
    { controllerName: 'T1', cellId: 1, paramSetId: 1, torqueTarget: 162.69 });  // truncated, not rounded
  assert.ok(results[0].torque > 140 && results[0].torque < 170, `torque ${results[0].torque}`);
  assert.match(results[0].timestamp, /^\d{4}-\d\d-\d\d:\d\d:\d\d:\d\d$/);

  await client.selectParameterSet(2);
  await assert.rejects(client.selectParameterSet(9), (e) => e.errorCode === 2);
  sim.stdin.write('event\n');
  await until('the result of program 2', () => results.length === 3);
  assert.deepStrictEqual([results[2].paramSetId, results[2].torqueTarget], [2, 250.5]);

  await client.disableTool();
  assert.match(sim.err, /tool locked/);
  await client.enableTool();
  assert.match(sim.err, /tool unlocked/);

  // Silence past the client's 7 s: its 9999 is answered and hytorcd (--op-idle 10) keeps it.
  await sleep(11000);
  assert.deepStrictEqual([client.getState().connection.lastMID, disconnections], [9999, 0]);

  daemon.kill('SIGTERM');
  await until('hytorcd stopped', () => daemon.exitCode === 0);
  daemon = startDaemon(port);
  await until('the subscription again', () => subscriptions === 2 && daemon.err.includes('listening'), 30000);
  sim.stdin.write('event\n');
  await until('the result after the restart', () => results.length === 4);
  assert.strictEqual(results[3].tighteningId, '0000000004');

  client.disconnect();
  await sleep(300);
  assert.doesNotMatch(daemon.err, /closed|refused/);
  daemon.kill('SIGTERM');
  await until('hytorcd stopped', () => daemon.exitCode === 0);
}

runTest('the third-party client against hytorcd', main);
