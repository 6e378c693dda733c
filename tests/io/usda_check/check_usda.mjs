// Reads a .usda layer with an independent USD text parser, checks what every consumer of a
// groom layer relies on, and prints the layer as one line of JSON for the io tests to read:
//   {"metadata": {...}, "prims": {"/path": {"type", "metadata", "attributes": {name: {"type",
//    "uniform", "metadata", "value", "samples": [[time, value], ...]}}}}}
// Prims and attributes keep the file's order; an attribute declared twice (metadata, then
// samples) is one entry. Dictionaries become objects, relationship targets path strings.
// Checks: the default prim exists, and on curves every time-sampled attribute is sampled at
// the times of curveVertexCounts with the element count its interpolation asks for.
// Exits 1 with the reason when the file does not parse or a check fails.
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
let parsed;
try {
  parsed = parse(fs.readFileSync(file, 'utf8'));
} catch (e) {
  fail(`parse error: ${e.message}`);
}

function plain(value) {
  if (Array.isArray(value)) return value.map(plain);
  if (value?.type === 'externalReferenceImport') return value.importPath;
  if (value?.type === 'objectValue') {
    return Object.fromEntries(value.declarations.values.map((d) => [d.reference, plain(d.value)]));
  }
  return value;
}
const metadataOf = (descriptor) =>
  Object.fromEntries((descriptor?.assignments ?? []).map((a) => [a.identifier, plain(a.value)]));

const prims = {};
function readPrim(statement, parent) {
  const path = `${parent}/${statement.name}`;
  const prim = { type: statement.defType, metadata: metadataOf(statement.descriptor), attributes: {} };
  prims[path] = prim;
  for (const s of statement.statements) {
    if (s.type === 'definition') {
      readPrim(s, path);
      continue;
    }
    const sampled = s.reference.endsWith('.timeSamples');
    const name = sampled ? s.reference.slice(0, -'.timeSamples'.length) : s.reference;
    const a = (prim.attributes[name] ??= { type: s.defineType, uniform: s.keyword === 'uniform', metadata: {} });
    Object.assign(a.metadata, metadataOf(s.descriptor));
    if (sampled) a.samples = s.value.declarations.values.map((v) => [v.index, plain(v.value)]);
    else if (s.value !== null) a.value = plain(s.value);
  }
}
for (const s of parsed.statements) if (s.type === 'definition') readPrim(s, '');
const layer = { metadata: metadataOf(parsed.descriptor), prims };

if (!prims[`/${layer.metadata.defaultPrim}`]) fail(`no root prim named by defaultPrim '${layer.metadata.defaultPrim}'`);
for (const [path, prim] of Object.entries(prims)) {
  const counts = prim.attributes.curveVertexCounts?.samples;
  if (prim.type !== 'BasisCurves' || !counts) continue;
  const times = JSON.stringify(counts.map(([t]) => t));
  for (const [name, a] of Object.entries(prim.attributes)) {
    if (!a.samples) continue;
    if (JSON.stringify(a.samples.map(([t]) => t)) !== times) fail(`${path}.${name} is not sampled at ${times}`);
    const interpolation = name === 'points' ? 'vertex' : name === 'extent' ? 'extent' : a.metadata.interpolation;
    a.samples.forEach(([t, value], f) => {
      const curves = counts[f][1].length;
      const points = counts[f][1].reduce((sum, n) => sum + n, 0);
      const expected = { extent: 2, uniform: curves, vertex: points, varying: points }[interpolation];
      if (expected !== undefined && value.length !== expected) {
        fail(`${path}.${name} at time ${t} has ${value.length} values, expected ${expected}`);
      }
    });
  }
}
console.log(JSON.stringify(layer));
