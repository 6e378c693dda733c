// Round trips of tressora-cli mcp over a pipe, as an agent's client makes them: ping and
// tools/list one after another (p50, p95 and calls per second), new_groom on a sample mesh
// with its summary, and set_params (with the summary's evaluation) on the example groom at
// its own density and at about 150k strands.
//   node bench/mcp_bench.mjs [path/to/tressora-cli] [sample mesh]
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

const cli = process.argv[2] ?? path.resolve('build/bin/tressora-cli');
const mesh = process.argv[3] ?? 'nika';
const root = fs.mkdtempSync(path.join(os.tmpdir(), 'tressora-mcp-bench-'));
const server = spawn(cli, ['mcp', '--root', root], { stdio: ['pipe', 'pipe', 'ignore'] });
let buffered = '';
let waiting = null;
server.stdout.on('data', (chunk) => {
  buffered += chunk.toString('utf8');
  const at = buffered.indexOf('\n');
  if (at >= 0 && waiting) {
    const line = buffered.slice(0, at);
    buffered = buffered.slice(at + 1);
    const resolve = waiting;
    waiting = null;
    resolve(line);
  }
});
let id = 0;
function request(method, params) {
  return new Promise((resolve) => {
    waiting = resolve;
    server.stdin.write(JSON.stringify({ jsonrpc: '2.0', id: ++id, method, params }) + '\n');
  });
}

async function timeMany(label, count, method, params) {
  const times = [];
  for (let i = 0; i < count; ++i) {
    const start = process.hrtime.bigint();
    await request(method, params);
    times.push(Number(process.hrtime.bigint() - start) / 1e6);
  }
  times.sort((a, b) => a - b);
  const total = times.reduce((a, b) => a + b, 0);
  console.log(`${label.padEnd(12)} p50 ${times[count >> 1].toFixed(3)} ms  p95 ${times[Math.floor(count * 0.95)].toFixed(3)} ms  ` +
              `${(count / (total / 1000)).toFixed(0)} calls/s`);
}

await request('initialize', { protocolVersion: '2025-06-18' });
await timeMany('ping', 5000, 'ping', {});
await timeMany('tools/list', 2000, 'tools/list', {});
const start = process.hrtime.bigint();
const answer = JSON.parse(await request('tools/call', { name: 'new_groom', arguments: { name: 'bench', mesh } }));
const ms = Number(process.hrtime.bigint() - start) / 1e6;
const result = JSON.parse(answer.result.content[0].text);
console.log(`new_groom ${mesh}: ${ms.toFixed(1)} ms round trip, ${result.summary?.strands} strands, ` +
            `summary evaluation ${result.summary?.ms} ms`);
// set_params on the example, at its density and denser: every call evaluates for its summary.
const example = JSON.parse(fs.readFileSync(new URL('../examples/nika.groom', import.meta.url)));
for (const [label, factor] of [['example', 1], ['150k', 150000 / 33720]]) {
  const groom = structuredClone(example);
  for (const node of groom.graph.nodes)
    if (node.type === 'Scatter') node.params = { ...(node.params ?? {}), density: 80 * factor };
  fs.writeFileSync(path.join(root, `${label}.groom`), JSON.stringify(groom));
  await request('tools/call', { name: 'open_groom', arguments: { path: `${label}.groom` } });
  const times = [];
  for (let i = 0; i < 20; ++i) {
    const start = process.hrtime.bigint();
    await request('tools/call', { name: 'set_params', arguments: { groom: label, node: 'noise', params: { amplitude: 0.05 + 0.001 * i } } });
    times.push(Number(process.hrtime.bigint() - start) / 1e6);
  }
  times.sort((a, b) => a - b);
  console.log(`set_params ${label.padEnd(8)} p50 ${times[10].toFixed(1)} ms  p95 ${times[19].toFixed(1)} ms`);
}
server.stdin.end();
fs.rmSync(root, { recursive: true, force: true });
