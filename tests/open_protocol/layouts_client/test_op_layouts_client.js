'use strict';
// A second, independent Open Protocol client: written from the layouts of Open Protocol
// R2.8.0 alone (the tables on the pages named below), it frames by the length field, reads
// every field of 0061 revisions 1-7, 0065 revisions 1-7, 0015 revisions 1-2, 0052 revisions
// 1-2, 0071, 0076 and 0081, checks each field id and width, and steps the revisions down as
// integrators' clients do. Run by CTest with HYTORC_BUILD_DIR set; Node.js only, no package.
const assert = require('assert');
const [net, path] = ['net', 'path'].map(require);
const { run, until, freePort, runTest } = require('../station.js');

// [id, width]; id null: a field without id. Open Protocol R2.8.0, p.134-142 (0061), p.147-152 (0065).
const seq = (first, widths) => widths.map((w, i) => [first + i, w]);
const result2 = [...seq(1, [4, 2, 25, 25, 4, 3, 2, 5, 4, 4]), ...seq(11, [1, 1, 1, 1, 1, 1, 1, 1, 1, 10]),
  ...seq(21, [6, 6, 6, 6, 5, 5, 5, 5, 5, 5, 5, 3, 3, 3, 6, 6, 6, 6, 6, 6, 10, 5, 5, 14, 19, 19])];
const old2 = seq(1, [10, 25, 4, 3, 2, 5, 4, 4, 1, 1, 1, 1, 1, 1, 1, 1, 1, 10, 6, 5, 5, 3, 6, 6, 5, 5, 14, 19]);
const growing = (base, additions) => additions.reduce((all, more) => [...all, [...all[all.length - 1], ...more]], [base]);
const layouts = {
  61: [null, seq(1, [4, 2, 25, 25, 2, 3, 4, 4, 1, 1, 1, 6, 6, 6, 6, 5, 5, 5, 5, 19, 19, 1, 10]),
    ...growing(result2, [seq(47, [25, 1, 2]), seq(50, [25, 25, 25]), [[53, 4]], seq(54, [6, 10]), seq(56, [7, 7])])],
  65: [null, seq(1, [10, 25, 3, 4, 1, 1, 1, 6, 5, 19, 1]),
    ...growing(old2, [seq(29, [1, 2]), seq(31, [25, 25, 25]), [[34, 4]], seq(35, [6, 10]), seq(37, [10, 25])])],
  15: [null, [[null, 3], [null, 19]], seq(1, [3, 25, 19, 1, 2, 6, 6, 6, 5, 5, 5, 6, 6])],  // p.86-87
  52: [null, [[null, 25]], seq(1, [25, 25, 25, 25])],                                      // p.131
  71: [null, seq(1, [4, 1, 1, 19]), seq(1, [5, 1, 1, 19, 50])],                             // p.163-164
  76: [null, seq(1, [1, 4, 1, 1, 19]), seq(1, [1, 5, 1, 1, 19])],                           // p.166-167
  81: [null, [[null, 19]]],                                                                 // p.169
};

// The fields of one message by id ('-' + position for fields without id); throws on a wrong id or length.
function parse(m) {
  const layout = layouts[m.mid][m.revision];
  const fields = {};
  let at = 20;
  layout.forEach(([id, width], i) => {
    if (id !== null) {
      assert.strictEqual(m.raw.slice(at, at + 2), String(id).padStart(2, '0'), `MID ${m.mid} rev ${m.revision} field ${id}`);
      at += 2;
    }
    fields[id ?? `-${i}`] = m.raw.slice(at, at + width);
    at += width;
  });
  assert.strictEqual(at, m.raw.length, `MID ${m.mid} rev ${m.revision}: ${m.raw.length} bytes, the layout has ${at}`);
  return fields;
}

class Client {
  constructor(port) {
    this.messages = [];
    this.buffer = '';
    this.socket = net.connect(port, '127.0.0.1');
    this.socket.setEncoding('latin1');
    this.socket.on('data', (d) => {
      this.buffer += d;
      for (let end; (end = this.buffer.indexOf('\0')) >= 0; this.buffer = this.buffer.slice(end + 1)) {
        const raw = this.buffer.slice(0, end);
        assert.strictEqual(Number(raw.slice(0, 4)), raw.length, `length field of ${raw.slice(0, 20)}`);
        this.messages.push({ raw, mid: Number(raw.slice(4, 8)), revision: Number(raw.slice(8, 11)) || 1 });
      }
    });
  }
  send(mid, revision = 1, data = '') {
    const body = String(mid).padStart(4, '0') + String(revision).padStart(3, '0') + ' '.repeat(9) + data;
    this.socket.write(String(body.length + 4).padStart(4, '0') + body + '\0');
  }
  async next(mid) {
    await until(`MID ${mid}`, () => this.messages.some((m) => m.mid === mid));
    return this.messages.splice(this.messages.findIndex((m) => m.mid === mid), 1)[0];
  }
  // Asks at `revision`, stepping down on 0004 97: the revision that was accepted.
  async subscribe(mid, revision) {
    for (;; revision -= 1) {
      this.send(mid, revision);
      const answer = await until(`an answer to ${mid}`, () => this.messages.find((m) => [4, 5].includes(m.mid)));
      this.messages.splice(this.messages.indexOf(answer), 1);
      if (answer.mid === 5) return revision;
      assert.strictEqual(answer.raw.slice(20), String(mid).padStart(4, '0') + '97');
    }
  }
}

async function main(dir) {
  const link = path.join(dir, 'tool');
  const sim = run('hytorc-sim', ['--link', link, '--reopen-after=1000']);
  await until('the simulator', () => sim.out.includes('\n'));
  const port = await freePort();
  const daemon = run('hytorcd', ['--device', link, '--journal', path.join(dir, 'r.db'), '--station', 'T1',
    '--op-port', String(port), '--op-idle', '60']);
  await until('the tool listened to', () => daemon.err.includes('listening'));
  const client = new Client(port);
  client.send(1);
  await client.next(2);

  for (let revision = 7; revision >= 1; revision -= 1) {
    assert.strictEqual(await client.subscribe(60, revision === 7 ? 8 : revision), revision);  // 8 is refused
    sim.stdin.write('event\n');
    const result = await client.next(61);
    const id = parse(result)[revision === 1 ? 23 : 41];
    client.send(62);
    client.send(63);
    await client.next(5);
    client.send(64, revision, '0000000000');
    assert.deepStrictEqual([result.revision, parse(await client.next(65))[1]], [revision, id]);
  }
  for (const revision of [2, 1]) {
    assert.strictEqual(await client.subscribe(14, revision), revision);
    assert.match(parse(await client.next(15))[revision === 1 ? '-0' : 1], /^\d{3}$/);
    client.send(17);
    await client.next(5);
    assert.strictEqual(await client.subscribe(51, revision), revision);
    client.send(50, 1, `VIN-${revision}`);
    await client.next(5);
    assert.strictEqual(parse(await client.next(52))[revision === 1 ? '-0' : 1], `VIN-${revision}`.padEnd(25));
    client.send(54);
    await client.next(5);
  }
  client.send(80);
  assert.match(parse(await client.next(81))['-0'], /^\d{4}-\d\d-\d\d:\d\d:\d\d:\d\d$/);
  assert.strictEqual(await client.subscribe(70, 2), 2);
  assert.strictEqual(parse(await client.next(76))[1], '0');
  sim.stdin.write('drop\n');
  const alarm = parse(await client.next(71));
  assert.deepStrictEqual([alarm[1], alarm[3], alarm[5]], ['E101 ', '0', 'tool is inaccessible'.padEnd(50)]);
  assert.strictEqual((await client.next(74)).raw.slice(20), 'E101');
  client.socket.end();
}

runTest('every field of the published layouts', main);
