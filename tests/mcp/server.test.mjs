// tressora-cli mcp through real clients: the official MCP client SDK over its stdio
// transport, the MCP inspector's command line, and raw lines on a pipe for every protocol
// fault, batches, long and broken lines and hostile paths. Run by ctest with TRESSORA_CLI
// set to the built program; skipped (77) when the npm packages are not installed.

import { test } from 'node:test';
import assert from 'node:assert/strict';
import { spawn, execFile } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const cli = process.env.TRESSORA_CLI;
const source = path.resolve(here, '..', '..');
if (!cli || !fs.existsSync(path.join(here, 'node_modules', '@modelcontextprotocol', 'sdk'))) {
  console.log('the MCP client packages are not installed (scripts/install-deps.sh installs them): skipped');
  process.exit(77);
}
const { Client } = await import('@modelcontextprotocol/sdk/client/index.js');
const { StdioClientTransport } = await import('@modelcontextprotocol/sdk/client/stdio.js');

/// A fresh root folder holding a copy of the example groom.
function freshRoot() {
  const root = fs.mkdtempSync(path.join(os.tmpdir(), 'tressora-mcp-'));
  fs.copyFileSync(path.join(source, 'examples', 'nika.groom'), path.join(root, 'nika.groom'));
  return fs.realpathSync(root);
}

/// The server on a pipe: send a line (or raw bytes), take answers line by line.
function rawServer(root) {
  const child = spawn(cli, ['mcp', '--root', root], { stdio: ['pipe', 'pipe', 'pipe'] });
  let buffered = '';
  const lines = [];
  const waiting = [];
  let stderr = '';
  child.stdout.on('data', (chunk) => {
    buffered += chunk.toString('utf8');
    let at;
    while ((at = buffered.indexOf('\n')) >= 0) {
      const line = buffered.slice(0, at);
      buffered = buffered.slice(at + 1);
      if (waiting.length) waiting.shift()(line);
      else lines.push(line);
    }
  });
  child.stderr.on('data', (chunk) => { stderr += chunk.toString('utf8'); });
  const exited = new Promise((resolve) => child.on('exit', (code) => resolve(code)));
  return {
    write: (data) => child.stdin.write(data),
    send: (value) => child.stdin.write((typeof value === 'string' ? value : JSON.stringify(value)) + '\n'),
    next: () => (lines.length ? Promise.resolve(lines.shift()) : new Promise((resolve) => waiting.push(resolve))),
    async answer(value) { this.send(value); return JSON.parse(await this.next()); },
    async close() { child.stdin.end(); return exited; },
    stderr: () => stderr,
    pending: () => lines.length,
  };
}

const call = (id, name, args) => ({ jsonrpc: '2.0', id, method: 'tools/call', params: { name, arguments: args } });
const resultOf = (answer) => JSON.parse(answer.result.content[0].text);

test('the official client connects, lists the tools and calls each', async () => {
  const root = freshRoot();
  const transport = new StdioClientTransport({ command: cli, args: ['mcp', '--root', root], stderr: 'pipe' });
  const client = new Client({ name: 'tressora-tests', version: '1.0.0' });
  await client.connect(transport);
  assert.equal(client.getServerVersion().name, 'tressora');
  const { tools } = await client.listTools();
  assert.deepEqual(tools.map((t) => t.name), ['list_sample_meshes', 'new_groom', 'open_groom', 'list_grooms', 'get_graph',
    'add_node', 'remove_node', 'connect', 'disconnect', 'set_params', 'add_script_node', 'save_node', 'undo', 'evaluate',
    'render_preview', 'save_groom', 'export']);

  const samples = JSON.parse((await client.callTool({ name: 'list_sample_meshes', arguments: {} })).content[0].text);
  assert.deepEqual(samples.meshes.map((m) => m.name), ['buddy', 'manny', 'nika', 'wolf']);

  const made = await client.callTool({ name: 'new_groom', arguments: { name: 'head', mesh: 'nika' } });
  assert.equal(made.isError, false);
  const head = JSON.parse(made.content[0].text);
  assert.equal(head.groom, 'head');
  assert.equal(head.mesh, 'nika (sample)');
  assert.ok(head.summary.strands > 1000, JSON.stringify(head.summary));
  assert.deepEqual(head.summary.errors, []);

  const opened = JSON.parse((await client.callTool({ name: 'open_groom', arguments: { path: 'nika.groom' } })).content[0].text);
  assert.equal(opened.groom, 'nika');
  assert.equal(opened.path, 'nika.groom');
  assert.ok(opened.nodes >= 10);

  const open = JSON.parse((await client.callTool({ name: 'list_grooms', arguments: {} })).content[0].text);
  assert.deepEqual(open.grooms.map((g) => [g.name, g.undoSteps]), [['head', 0], ['nika', 0]]);

  const nothing = await client.callTool({ name: 'undo', arguments: { groom: 'head' } });
  assert.equal(nothing.isError, true);
  assert.deepEqual(JSON.parse(nothing.content[0].text), { error: 'nothing to undo' });
  const which = await client.callTool({ name: 'undo', arguments: {} });
  assert.deepEqual(JSON.parse(which.content[0].text), { error: 'several grooms are open (head, nika): say which with "groom"' });
  await client.close();
});

test('the inspector lists the tools', async () => {
  const root = freshRoot();
  const inspector = path.join(here, 'node_modules', '.bin', 'mcp-inspector');
  const out = await new Promise((resolve, reject) =>
    execFile(inspector, ['--cli', cli, 'mcp', '--root', root, '--method', 'tools/list'], { timeout: 60000 },
      (error, stdout) => (error ? reject(error) : resolve(stdout))));
  assert.deepEqual(JSON.parse(out).tools.map((t) => t.name).slice(0, 2), ['list_sample_meshes', 'new_groom']);
});

test('every protocol fault has its code, text and id', async () => {
  const server = rawServer(freshRoot());
  const rows = [
    ['{', -32700, 'not JSON', null],
    ['[]', -32600, 'an empty batch', null],
    ['7', -32600, 'a message must be a JSON object', null],
    ['{"id": null, "jsonrpc": "2.0", "method": "ping"}', -32600, 'the id must be a string or an integer', null],
    ['{"id": 1.5, "jsonrpc": "2.0", "method": "ping"}', -32600, 'the id must be a string or an integer', null],
    ['{"id": 3, "jsonrpc": "1.0", "method": "ping"}', -32600, 'not a JSON-RPC 2.0 request', 3],
    ['{"id": "a", "jsonrpc": "2.0"}', -32600, 'not a JSON-RPC 2.0 request', 'a'],
    ['{"jsonrpc": "2.0", "method": 5}', -32600, 'not a JSON-RPC 2.0 request', null],
    ['{"id": 4, "jsonrpc": "2.0", "method": "tools/call", "params": {}}', -32602, 'tools/call needs a tool "name"', 4],
    ['{"id": 5, "jsonrpc": "2.0", "method": "tools/call", "params": {"name": "fly"}}', -32602, "unknown tool 'fly'", 5],
    ['{"id": 6, "jsonrpc": "2.0", "method": "tools/call", "params": {"name": "undo", "arguments": null}}', -32602,
      'the arguments must be a JSON object', 6],
    ['{"id": 7, "jsonrpc": "2.0", "method": "dance"}', -32601, "unknown method 'dance'", 7],
  ];
  for (const [line, code, message, id] of rows) {
    const answer = await server.answer(line);
    assert.deepEqual(answer, { error: { code, message }, id, jsonrpc: '2.0' }, line);
  }
  // Answers and silences.
  assert.deepEqual((await server.answer({ jsonrpc: '2.0', id: 'p', method: 'ping' })).result, {});
  const init = await server.answer({ jsonrpc: '2.0', id: 8, method: 'initialize', params: { protocolVersion: '2024-11-05' } });
  assert.equal(init.result.protocolVersion, '2024-11-05');
  const later = await server.answer({ jsonrpc: '2.0', id: 9, method: 'initialize', params: { protocolVersion: '1999-01-01' } });
  assert.equal(later.result.protocolVersion, '2025-06-18');
  assert.deepEqual((await server.answer({ jsonrpc: '2.0', id: 10, method: 'resources/list' })).result, { resources: [] });
  assert.deepEqual((await server.answer({ jsonrpc: '2.0', id: 11, method: 'prompts/list' })).result, { prompts: [] });
  for (const silent of ['   \t ', '\r', '{"result": 1}', '{"error": {}}', '{"jsonrpc": "2.0", "method": "notifications/initialized"}'])
    server.send(silent);
  // A reply-shaped message with a method is a request after all; a CR LF line parses.
  server.write('{"result": 1, "method": "ping", "id": 12, "jsonrpc": "2.0"}\r\n');
  assert.equal(JSON.parse(await server.next()).id, 12);
  assert.equal(server.pending(), 0);
  assert.equal(await server.close(), 0);
});

test('every sample mesh takes a groom whose edits undo cleanly', async () => {
  const server = rawServer(freshRoot());
  let id = 0;
  const ok = async (name, args) => {
    const answer = await server.answer(call(++id, name, args));
    assert.equal(answer.result.isError, false, `${name}: ${answer.result.content[0].text}`);
    return resultOf(answer);
  };
  for (const mesh of ['buddy', 'manny', 'nika', 'wolf']) {
    const made = await ok('new_groom', { name: mesh, mesh });
    assert.ok(made.summary.strands > 0, mesh);
    const original = JSON.stringify((await ok('get_graph', { groom: mesh, full: true })).graph);
    await ok('add_node', { groom: mesh, type: 'Curl', after: 'resample' });
    await ok('set_params', { groom: mesh, node: 'curl', params: { shape: 'wave', radius: 0.2, profile: [[0, 0], [1, 1]] } });
    await ok('set_params', { groom: mesh, node: 'length', params: { keep: { expression: '0.5 + 0.5 * v' } } });
    await ok('undo', { groom: mesh, steps: 3 });
    assert.equal(JSON.stringify((await ok('get_graph', { groom: mesh, full: true })).graph), original, mesh);
  }
  assert.equal(await server.close(), 0);
});

test('batches, long lines, broken UTF-8, split lines and the end of input', async () => {
  const server = rawServer(freshRoot());
  const batch = await server.answer([
    { jsonrpc: '2.0', id: 1, method: 'ping' }, 1, { jsonrpc: '2.0', method: 'notifications/cancelled' },
    { jsonrpc: '2.0', id: 2, method: 'nope' }]);
  assert.deepEqual(batch.map((a) => a.id), [1, null, 2]);
  assert.deepEqual(batch[1].error.message, 'a message must be a JSON object');
  // A batch of notifications only: no line at all (the ping after it answers first).
  server.send([{ jsonrpc: '2.0', method: 'notifications/initialized' }]);
  assert.equal((await server.answer({ jsonrpc: '2.0', id: 3, method: 'ping' })).id, 3);

  const long = '"' + 'x'.repeat(64 * 1024 * 1024) + '"';
  assert.deepEqual((await server.answer(long)).error, { code: -32600, message: 'the message is too long' });

  // Invalid UTF-8 in a string is answered, the bad bytes replaced.
  server.write(Buffer.concat([Buffer.from('{"jsonrpc":"2.0","id":4,"method":"tools/call","params":{"name":"a'),
    Buffer.from([0xff, 0xfe]), Buffer.from('"}}\n')]));
  const broken = JSON.parse(await server.next());
  assert.equal(broken.id, 4);
  assert.ok(broken.error.message.startsWith("unknown tool 'a"), broken.error.message);

  // A line that arrives in pieces is one message.
  server.write('{"jsonrpc": "2.0", "id"');
  await new Promise((resolve) => setTimeout(resolve, 50));
  server.write(': 5, "method": "ping"}\n');
  assert.equal(JSON.parse(await server.next()).id, 5);
  // The last line may lack its line feed.
  server.write('{"jsonrpc": "2.0", "id": 6, "method": "ping"}');
  const last = server.next();
  assert.equal(await server.close(), 0);
  assert.equal(JSON.parse(await last).id, 6);
});

test('hostile paths never reach outside the root', async () => {
  const root = freshRoot();
  const outside = fs.mkdtempSync(path.join(os.tmpdir(), 'tressora-outside-'));
  fs.copyFileSync(path.join(source, 'examples', 'nika.groom'), path.join(outside, 'secret.groom'));
  fs.writeFileSync(path.join(outside, 'mesh.obj'), 'v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n');
  fs.symlinkSync(path.join(outside, 'secret.groom'), path.join(root, 'link.groom'));
  fs.symlinkSync(outside, path.join(root, 'door'));
  fs.mkdirSync(path.join(root, 'sub'));
  const server = rawServer(root);
  const refusals = [
    '../secret.groom', '../../etc/passwd.groom', `${outside}/secret.groom`, '/etc/passwd', 'link.groom',
    'door/secret.groom', 'sub/../../secret.groom', './../secret.groom', `${root}/../secret.groom`,
    'sub/../door/secret.groom', '..', '.', '', 'a\u0000b.groom', `${'a'.repeat(5000)}.groom`,
    '..\\..\\secret.groom', 'C:\\Windows\\secret.groom', '//etc/passwd.groom', `${root}/door/secret.groom`,
    'door/../../secret.groom', `file://${outside}/secret.groom`, '~/secret.groom',
  ];
  let id = 0;
  for (const hostile of refusals) {
    const answer = await server.answer(call(++id, 'open_groom', { path: hostile }));
    assert.equal(answer.result.isError, true, hostile);
    const message = resultOf(answer).error;
    assert.ok(!message.startsWith('cannot read the groom'), `${hostile}: ${message}`);
  }
  for (const mesh of [`${outside}/mesh.obj`, '../mesh.obj', 'door/mesh.obj']) {
    const answer = await server.answer(call(++id, 'new_groom', { name: `m${id}`, mesh }));
    assert.match(resultOf(answer).error, /outside the folder this server may read and write/, mesh);
  }
  // An absolute path inside the root is taken, and shown relative to it.
  const inside = await server.answer(call(++id, 'open_groom', { path: `${root}/sub/../nika.groom` }));
  assert.equal(resultOf(inside).path, 'nika.groom');
  assert.equal(await server.close(), 0);
  assert.deepEqual(fs.readdirSync(outside).sort(), ['mesh.obj', 'secret.groom']);
});

test('graph edits undo back to the very text they started from', async () => {
  const root = freshRoot();
  const server = rawServer(root);
  let id = 0;
  const tool = async (name, args) => server.answer(call(++id, name, args));
  const ok = async (name, args) => {
    const answer = await tool(name, args);
    assert.equal(answer.result.isError, false, `${name}: ${answer.result.content[0].text}`);
    return resultOf(answer);
  };
  await ok('new_groom', { name: 'g', mesh: 'nika' });
  const original = JSON.stringify((await ok('get_graph', { full: true })).graph);

  const added = await ok('add_node', { type: 'Clump', after: 'length', params: { count: 50 } });
  assert.equal(added.node, 'clump');
  assert.equal(added.placed, 'after length');
  const view = await ok('get_graph', {});
  const clump = view.nodes.find((n) => n.name === 'clump');
  assert.deepEqual(clump.inputs, { strands: 'length' });
  assert.equal(view.nodes.find((n) => n.name === 'noise').inputs.strands, 'clump');
  assert.equal(clump.params.count, 50);
  await ok('set_params', { node: 'clump', params: { strength: 0.9, pastTip: 'extend' } });
  await ok('set_params', { node: 'noise', params: { amplitude: { expression: '0.1 * u' } } });
  const curl = await ok('add_node', { type: 'Curl' });
  assert.equal(curl.placed, 'before output (the end of the chain)');
  await ok('connect', { from: 'interpolate', to: 'noise', input: 'strands' });
  await ok('disconnect', { to: 'noise', input: 'strands' });
  const removed = await ok('remove_node', { node: 'width' });
  assert.deepEqual(removed.reconnected, ['color -> resample.strands']);
  const listed = await ok('list_grooms', {});
  assert.equal(listed.grooms[0].undoSteps, 7);

  // Refusals change nothing and add no step.
  const refusals = [
    ['set_params', { node: 'clump', params: { strength: 'wide' } }, "clump.strength takes a float (or a map object), not \"wide\""],
    ['set_params', { node: 'clump', params: { count: 10, flatness: 3 } }, 'clump.flatness must be within [0, 1], not 3'],
    ['set_params', { node: 'clump', params: { pastTip: 'fly' } }, 'clump.pastTip is one of ["gather","extend"], not "fly"'],
    ['set_params', { node: 'clump', params: { colour: 1 } }, null],
    ['set_params', { node: 'ghost', params: { a: 1 } }, "no node 'ghost' in the graph (get_graph lists them)"],
    ['set_params', { node: 'clump', params: {} }, 'no params given'],
    ['set_params', { node: 'clump', params: { count: '1'.repeat(10 * 1024 * 1024) } }, null],
    ['connect', { from: 'resample', to: 'scatter', input: 'scalp' }, 'graph: cannot connect resample (it gives Curves) to scatter (it takes Mesh)'],
    ['connect', { from: 'curl', to: 'color', input: 'strands' }, 'graph: connecting curl to color would create a cycle'],
    ['connect', { from: 'length', to: 'clump', input: 'hair' }, 'graph: clump has no input hair'],
    ['disconnect', { to: 'noise', input: 'strands' }, 'nothing feeds noise.strands'],
    ['remove_node', { node: 'output' }, "'output' is the graph's output: it cannot be removed"],
    ['remove_node', { node: 'ghost' }, "no node 'ghost' in the graph"],
    ['add_node', { type: 'Teleport' }, null],
    ['add_node', { type: 'Script' }, 'add a script node with add_script_node'],
    ['add_node', { type: 'Curl', after: 'ghost' }, "no node 'ghost' to insert after"],
    ['add_node', { type: 'Curl', name: 'bad name!' }, "a node's name 'bad name!' may hold only letters, digits, _, - and ."],
    ['add_node', { type: 'Curl', params: { radius: '/etc/passwd' } }, null],
    ['add_node', { type: 7 }, "'type' must be a string, not 7"],
    ['add_node', {}, "missing argument 'type'"],
    ['undo', { steps: 65 }, 'steps must be 1 to 64'],
    ['add_node', { type: 'Curl', before: 'ghost' }, "no node 'ghost' to insert before"],
    ['add_node', { type: 'Length', after: 'scalp' }, "'length2' has no input that takes what 'scalp' gives (Mesh)"],
    ['add_node', { type: 'Curl', inputs: { strands: 3 } }, 'inputs map an input name to "node" or "node.output"'],
    ['set_params', { node: 'clump', params: { definition: 'x' } }, 'change a script node\'s script with add_script_node and "node"'],
    ['new_groom', { name: 'g', mesh: 'nika' }, "a groom named 'g' is open already: pick another name"],
    ['new_groom', { name: 'h', mesh: 'moon' },
      "no sample mesh 'moon' (samples: buddy, manny, nika, wolf; or give a .obj or .abc file's path)"],
    ['new_groom', { name: 'h', mesh: 'none.obj' }, "no mesh file 'none.obj'"],
    ['open_groom', { path: 'nika.obj' }, 'open_groom reads .groom files'],
    ['open_groom', { path: 'nika.groom', name: 'g' }, 'a groom named \'g\' is open already: give another "name"'],
  ];
  for (const [name, args, message] of refusals) {
    const answer = await tool(name, args);
    assert.equal(answer.result.isError, true, `${name} ${JSON.stringify(args).slice(0, 80)}`);
    if (message) assert.equal(resultOf(answer).error, message);
  }
  fs.writeFileSync(path.join(root, 'broken.groom'), '{"format": "tressora.groom", "version": 1, "graph": 3');
  assert.match(resultOf(await tool('open_groom', { path: 'broken.groom' })).error, /^cannot read the groom: /);
  fs.writeFileSync(path.join(root, 'bald.groom'), '{"format": "tressora.groom", "version": 1}');
  assert.equal(resultOf(await tool('open_groom', { path: 'bald.groom' })).error, 'the groom file has no scalp');
  // A mesh file that is no mesh, and one cut short.
  fs.writeFileSync(path.join(root, 'junk.obj'), 'hello\n');
  fs.writeFileSync(path.join(root, 'cut.abc'), fs.readFileSync(path.join(source, 'examples', 'nika.groom')).subarray(0, 100));
  for (const mesh of ['junk.obj', 'cut.abc'])
    assert.equal((await tool('new_groom', { name: 'x', mesh })).result.isError, true, mesh);
  assert.equal((await ok('list_grooms', {})).grooms[0].undoSteps, 7);

  const back = await ok('undo', { steps: 7 });
  assert.deepEqual(back.undone, ['remove width', 'disconnect noise.strands', 'connect interpolate -> noise.strands',
    'add Curl', 'set noise', 'set clump', 'add Clump']);
  assert.equal(JSON.stringify((await ok('get_graph', { full: true })).graph), original);
  assert.equal(await server.close(), 0);
});
