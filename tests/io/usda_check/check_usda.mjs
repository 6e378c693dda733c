// Reads a .usda layer with an independent USD text parser and checks what every consumer of
// a groom layer relies on: the default prim exists, the curves prim has time samples at the
// same times for every attribute, and every array has the length its topology asks for.
// Prints one line of JSON with what it found; exits 1 with the reason when a check fails.
// Usage: node check_usda.mjs <file.usda>

import fs from 'node:fs';
// The package's index imports its parser without a file extension, which Node's ES module
// loader refuses; the generated parser module itself loads fine.
import { parse } from './node_modules/@kroxilon/usda-parser/lib/usda-parser.peggy.js';

function fail(message) {
  console.error(`check_usda: ${message}`);
  process.exit(1);
}

const file = process.argv[2];
if (!file) fail('usage: node check_usda.mjs <file.usda>');
let layer;
try {
  layer = parse(fs.readFileSync(file, 'utf8'));
} catch (e) {
  fail(`parse error: ${e.message}`);
}

const meta = Object.fromEntries((layer.descriptor?.assignments ?? []).map((a) => [a.identifier, a.value]));
const rootName = meta.defaultPrim;
const root = layer.statements.find((s) => s.type === 'definition' && s.name === rootName);
if (!root) fail(`no root prim named by defaultPrim '${rootName}'`);
const curves = root.statements.find((s) => s.type === 'definition' && s.defType === 'BasisCurves');
if (!curves) fail('no BasisCurves prim under the root prim');

const interpolation = {};
const samples = {};
for (const d of curves.statements.filter((s) => s.type === 'declaration')) {
  const interp = d.descriptor?.assignments?.find((a) => a.identifier === 'interpolation');
  if (interp) interpolation[d.reference] = interp.value;
  if (d.reference.endsWith('.timeSamples')) {
    const name = d.reference.slice(0, -'.timeSamples'.length);
    samples[name] = d.value.declarations.values.map((v) => [v.index, v.value]);
  }
}
const counts = samples.curveVertexCounts;
if (!counts) fail('curveVertexCounts is not time-sampled');
const times = counts.map(([t]) => t);
for (const [name, list] of Object.entries(samples)) {
  const own = list.map(([t]) => t);
  if (JSON.stringify(own) !== JSON.stringify(times)) fail(`${name} is sampled at ${own}, not at ${times}`);
  list.forEach(([t, value], f) => {
    const curveCount = counts[f][1].length;
    const pointCount = counts[f][1].reduce((a, b) => a + b, 0);
    let expected = null;
    if (name === 'points') expected = pointCount;
    else if (name === 'extent') expected = 2;
    else if (interpolation[name] === 'uniform') expected = curveCount;
    else if (interpolation[name] === 'vertex' || interpolation[name] === 'varying') expected = pointCount;
    if (expected !== null && value.length !== expected) {
      fail(`${name} at time ${t} has ${value.length} values, expected ${expected}`);
    }
  });
}
const firstPoints = samples.points?.[0]?.[1] ?? [];
console.log(JSON.stringify({
  defaultPrim: rootName,
  upAxis: meta.upAxis,
  metersPerUnit: meta.metersPerUnit,
  timeCodesPerSecond: meta.timeCodesPerSecond,
  times,
  attributes: Object.keys(samples),
  firstPoint: firstPoints[0] ?? null,
}));
