// An agent's session from start to finish through the official MCP client SDK: a groom made
// on a sample head, styled, looked at, exported, saved and reopened; then every refusal of the
// evaluate, preview, save, export and script tools, none of which may change a file or the
// graph. Run by ctest with TRESSORA_CLI set; skipped (77) when the npm packages are missing.

import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const cli = process.env.TRESSORA_CLI;
const modules = path.join(here, 'node_modules');
if (!cli || !fs.existsSync(path.join(modules, '@modelcontextprotocol', 'sdk')) || !fs.existsSync(path.join(modules, 'pngjs'))) {
  console.log('the MCP client packages are not installed (scripts/install-deps.sh installs them): skipped');
  process.exit(77);
}
const { Client } = await import('@modelcontextprotocol/sdk/client/index.js');
const { StdioClientTransport } = await import('@modelcontextprotocol/sdk/client/stdio.js');
const { PNG } = (await import('pngjs')).default;

async function connect(root) {
  const transport = new StdioClientTransport({ command: cli, args: ['mcp', '--root', root], stderr: 'pipe' });
  const client = new Client({ name: 'tressora-agent-tests', version: '1.0.0' });
  await client.connect(transport);
  const call = async (name, args = {}) => {
    const answer = await client.callTool({ name, arguments: args });
    const text = answer.content.find((c) => c.type === 'text');
    return { ...answer, value: JSON.parse(text.text) };
  };
  const ok = async (name, args) => {
    const answer = await call(name, args);
    assert.equal(answer.isError, false, `${name}: ${JSON.stringify(answer.value)}`);
    return answer.value;
  };
  const refused = async (name, args) => {
    const answer = await call(name, args);
    assert.equal(answer.isError, true, `${name} should fail: ${JSON.stringify(answer.value)}`);
    return answer.value.error ?? answer.value;
  };
  return { client, call, ok, refused };
}

const hashOf = (file) => execFileSync(cli, ['hash', file], { encoding: 'utf8' });

/// Pixels of two images of one size that differ by more than a little in any channel.
function differingPixels(a, b) {
  let count = 0;
  for (let i = 0; i < a.data.length; i += 4) {
    if (Math.abs(a.data[i] - b.data[i]) + Math.abs(a.data[i + 1] - b.data[i + 1]) + Math.abs(a.data[i + 2] - b.data[i + 2]) > 12) {
      count++;
    }
  }
  return count;
}

test('an agent makes, styles, previews, exports, saves and reopens a groom', async () => {
  const root = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'tressora-agent-')));
  const { client, ok } = await connect(root);
  try {
    const { meshes } = await ok('list_sample_meshes');
    assert.ok(meshes.some((m) => m.name === 'nika'));
    const made = await ok('new_groom', { name: 'head', mesh: 'nika' });
    assert.ok(made.summary.strands > 1000);

    assert.equal((await ok('add_node', { type: 'Clump', after: 'length' })).placed, 'after length');
    assert.equal((await ok('add_node', { type: 'Curl', after: 'clump' })).node, 'curl');
    const set = await ok('set_params', { node: 'curl', params: { frequency: 0.8, randomness: 0.5 } });
    assert.deepEqual(set.set, ['frequency', 'randomness']);

    // A script node of the agent's own, then saved as a node file.
    const script = await ok('add_script_node', {
      label: 'Soft Wave', after: 'curl', writes: ['P'],
      params: [{ name: 'size', type: 'length', default: 0.2 }],
      script: 'per point {\n    P += N * $size * sin(t * 12.0) * t;\n}\n',
    });
    assert.deepEqual([script.node, script.placed], ['soft_wave', 'after curl']);
    assert.deepEqual(script.summary.errors, []);
    const savedNode = await ok('save_node', { node: 'soft_wave' });
    assert.deepEqual([savedNode.path, savedNode.id], ['mynodes.soft_wave.tsnode', 'mynodes.soft_wave']);
    assert.equal(JSON.parse(fs.readFileSync(path.join(root, savedNode.path), 'utf8')).label, 'Soft Wave');

    const evaluated = await ok('evaluate', { frame: 1 });
    assert.equal(evaluated.groom, 'head');
    assert.ok(Object.keys(evaluated.nodeMs).length > 0 && Object.values(evaluated.nodeMs).every((ms) => ms >= 0));

    // The preview decodes as a PNG of the grid's size, with hair drawn over the scalp.
    const preview = await client.callTool({ name: 'render_preview', arguments: { views: ['front', 'side'], size: 256, save_to: 'look/head.png' } });
    assert.equal(preview.isError, false);
    assert.equal(preview.content[0].type, 'image');
    assert.equal(preview.content[0].mimeType, 'image/png');
    const info = JSON.parse(preview.content[1].text);
    assert.deepEqual([info.width, info.height, info.columns, info.saved], [256, 128, 2, 'look/head.png']);
    const image = PNG.sync.read(Buffer.from(preview.content[0].data, 'base64'));
    assert.deepEqual([image.width, image.height], [256, 128]);
    assert.ok(fs.readFileSync(path.join(root, 'look/head.png')).equals(Buffer.from(preview.content[0].data, 'base64')));
    const bare = await client.callTool({ name: 'render_preview', arguments: { views: ['front', 'side'], size: 256, node: 'scalp' } });
    assert.equal(JSON.parse(bare.content[1].text).strandsDrawn, 0);
    const scalpOnly = PNG.sync.read(Buffer.from(bare.content[0].data, 'base64'));
    assert.ok(differingPixels(image, scalpOnly) > 0.02 * 256 * 128, 'the strands should cover part of the image');

    for (const [file, format] of [['out/head.abc', 'alembic'], ['out/head.usda', 'usd'], ['out/head.vrscene', 'vrscene']]) {
      const exported = await ok('export', { path: file });
      assert.deepEqual([exported.path, exported.format, exported.frames], [file, format, 1]);
      assert.equal(exported.strandsPerFrame, evaluated.strands);
      assert.ok(fs.statSync(path.join(root, file)).size > 0);
      assert.ok(!fs.existsSync(path.join(root, file + '.tmp')));
    }

    const saved = await ok('save_groom', { path: 'head.groom' });
    assert.equal(saved.bytes, fs.statSync(path.join(root, 'head.groom')).size);
    await ok('open_groom', { path: 'head.groom', name: 'again' });
    const graphOf = async (groom) => { const g = await ok('get_graph', { groom }); delete g.groom; return g; };
    assert.deepEqual(await graphOf('again'), await graphOf('head'));

    // The agent's export is what the command line writes for the saved groom.
    execFileSync(cli, ['eval', path.join(root, 'head.groom'), '-o', path.join(root, 'cli.abc')]);
    assert.equal(hashOf(path.join(root, 'out/head.abc')), hashOf(path.join(root, 'cli.abc')));
  } finally {
    await client.close();
  }
});

test('every refusal answers isError and changes no file and no graph', async () => {
  const root = fs.realpathSync(fs.mkdtempSync(path.join(os.tmpdir(), 'tressora-agent-')));
  fs.writeFileSync(path.join(root, 'locked.groom'), 'old');
  fs.chmodSync(path.join(root, 'locked.groom'), 0o444);
  fs.writeFileSync(path.join(root, 'plain.txt'), 'a file, not a folder');
  const { client, call, ok, refused } = await connect(root);
  try {
    await ok('new_groom', { name: 'head', mesh: 'nika' });
    await ok('add_script_node', { label: 'Lift', script: 'per point {\n    P += N * 0.1 * t;\n}\n' });
    const graphBefore = await ok('get_graph', { full: true });
    const undoBefore = (await ok('list_grooms')).grooms[0].undoSteps;

    const cases = [
      ['evaluate', { density: 1.5 }, 'density must be 0 to 1'],
      ['render_preview', { views: [3] }, 'views are names: front, side, back, three_quarter, top'],
      ['render_preview', { size: 32 }, 'size must be between 64 and 1024 pixels'],
      ['render_preview', { save_to: 'look.jpg' }, 'save_to must be a .png file'],
      ['save_groom', { path: 'head.json' }, 'a groom file ends in .groom'],
      ['save_groom', { path: 'locked.groom' }, "cannot write 'locked.groom': the file is read-only"],
      ['export', { path: 'x.abc', frames: '1-x' }, 'frames is a frame ("12") or a range ("1-24")'],
      ['export', { path: 'x.abc', frames: '1-1001' }, 'at most 1000 frames in one export'],
      ['export', { path: 'x.txt' }, 'the output must be .abc, .usda, .usd or .vrscene'],
      ['add_script_node', { label: 'X' }, 'give the node\'s "script" (or a whole .tsnode "definition")'],
      ['add_script_node', { script: '#'.repeat(65537) }, 'the script is longer than 64 KB'],
      ['add_script_node', { node: 'nope', script: 'per point { P += N; }' }, "no node 'nope' in the graph"],
      ['add_script_node', { node: 'noise', script: 'per point { P += N; }' }, "'noise' is not a script node"],
      ['save_node', { node: 'noise' }, 'only script and compound nodes are saved as .tsnode files'],
      ['save_node', { node: 'lift', path: 'lift.json' }, 'a node file ends in .tsnode'],
    ];
    for (const [tool, args, message] of cases) assert.equal(await refused(tool, args), message, `${tool} ${JSON.stringify(args)}`);
    assert.match(await refused('save_groom', { path: '../out.groom' }), /is outside the folder this server may read and write/);
    assert.match(await refused('save_groom', { path: 'plain.txt/head.groom' }), /^cannot write /);

    // A script that does not compile comes back with its line and column.
    const faulty = await refused('add_script_node', { script: 'per point {\n    P += N * ;\n}\n' });
    assert.equal(faulty.errors.length, 1);
    assert.equal(faulty.errors[0].line, 2);
    assert.ok(faulty.errors[0].column > 1);
    assert.match(faulty.message, /^The script node has errors/);

    assert.deepEqual(await ok('get_graph', { full: true }), graphBefore);
    assert.equal((await ok('list_grooms')).grooms[0].undoSteps, undoBefore);
    assert.equal(fs.readFileSync(path.join(root, 'locked.groom'), 'utf8'), 'old');
    assert.deepEqual(fs.readdirSync(root).sort(), ['locked.groom', 'plain.txt']);

    // Limits that pass: density 0, a script of exactly 64 KB, 1000 frames at a step of 2.
    assert.ok((await ok('evaluate', { density: 0 })).strands < (await ok('evaluate', { density: 1 })).strands);
    const body = 'per point {\n    P += N * 0.1 * t;\n}\n';
    const padded = '#'.repeat(65536 - body.length - 1) + '\n' + body;
    assert.equal(padded.length, 65536);
    await ok('add_script_node', { node: 'lift', script: padded });
    await ok('set_params', { node: 'scatter', params: { density: 0 } });
    const many = await ok('export', { path: 'many.usda', frames: '1-2000', step: 2 });
    assert.equal(many.frames, 1000);
    const preview = await call('render_preview', { max_strands: 10 });
    assert.ok(JSON.parse(preview.content[1].text).strandsDrawn <= 110);
  } finally {
    fs.chmodSync(path.join(root, 'locked.groom'), 0o644);
    await client.close();
  }
});
