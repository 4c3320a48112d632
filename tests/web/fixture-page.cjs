// Fills the built page template with a small scene and model: two annotations of ten-unit squares
// (lines) with a triangle each, and a capture that looks at the first from above.
// Usage: node fixture-page.cjs TEMPLATE.html OUT.html
'use strict';
const fs = require('fs');

function glb(json, bin) {
  const pad = (buffer, fill) => Buffer.concat([buffer, Buffer.alloc((4 - (buffer.length % 4)) % 4, fill)]);
  const text = pad(Buffer.from(JSON.stringify(json)), 0x20);
  const data = pad(bin, 0);
  const header = Buffer.alloc(12);
  header.writeUInt32LE(0x46546c67, 0);
  header.writeUInt32LE(2, 4);
  header.writeUInt32LE(12 + 8 + text.length + 8 + data.length, 8);
  const chunk = (body, type) => {
    const head = Buffer.alloc(8);
    head.writeUInt32LE(body.length, 0);
    head.writeUInt32LE(type, 4);
    return Buffer.concat([head, body]);
  };
  return Buffer.concat([header, chunk(text, 0x4e4f534a), chunk(data, 0x004e4942)]);
}

const square = [0, 0, 0, 10, 0, 0, 10, 10, 0, 0, 10, 0];
const triangle = [2, 2, 0, 8, 2, 0, 5, 8, 0];
const bin = Buffer.from(new Float32Array([...square, ...triangle]).buffer);
const accessor = (view, count, min, max) => ({ bufferView: view, componentType: 5126, count, type: 'VEC3', min, max });
const annotation = (index, id, name, x) => ({
  name, translation: [x, 0, 0], children: [],
  extras: { family: 'annotations', set: 0, index, id, name, type: 1, value: 0.05 * id, attribute: `A${id}` },
});
const gltf = {
  asset: { version: '2.0' },
  scene: 0,
  scenes: [{ nodes: [0] }],
  nodes: [
    { name: 'Fixture', children: [1, 4], extras: { family: 'sets', set: 0, id: 1, name: 'Fixture' } },
    { name: 'annotations', children: [2, 3] },
    annotation(0, 1, 'Flatness', 0),
    annotation(1, 2, 'Position', 15),
    { name: 'captures', children: [5] },
    { name: 'Top', children: [6], extras: { family: 'captures', set: 0, index: 0, id: 7, name: 'Top', type: 1 } },
    { name: 'camera', camera: 0, translation: [5, 5, 40], extras: { capture: 7, annotations: [1], target: [5, 5, 0] } },
    { name: 'outline', mesh: 0 },
  ],
  meshes: [{ primitives: [{ attributes: { POSITION: 0 }, mode: 2 }, { attributes: { POSITION: 1 }, mode: 4 }] }],
  accessors: [accessor(0, 4, [0, 0, 0], [10, 10, 0]), accessor(1, 3, [2, 2, 0], [8, 8, 0])],
  bufferViews: [{ buffer: 0, byteOffset: 0, byteLength: 48 }, { buffer: 0, byteOffset: 48, byteLength: 36 }],
  buffers: [{ byteLength: bin.length }],
  cameras: [{ type: 'perspective', perspective: { yfov: Math.PI / 4, znear: 0.1 } }],
};
gltf.nodes[2].children = [7];
gltf.nodes.push({ name: 'outline', mesh: 0 });
gltf.nodes[3].children = [8];

const model = {
  schema: 'current', result: '0x00000000',
  sets: [{
    name: 'Fixture', ttrs: [], views: [], refFrames: [], cgs: [],
    annotations: [1, 2].map((id) => ({ id, name: id === 1 ? 'Flatness' : 'Position', value: 0.05 * id, attribute: `A${id}`, ttrs: [], views: [], orderGroup: null })),
    captures: [{ id: 7, name: 'Top', annotations: [1], views: [], cgs: [], activeView: null, clippingPlane: 0,
      camera: { type: 1, position: [5, 5, 40], direction: [0, 0, -1], zenith: [0, 1, 0], target: [5, 5, 0] } }],
  }],
};

const [templatePath, outPath] = process.argv.slice(2);
const template = fs.readFileSync(templatePath, 'utf8');
fs.writeFileSync(outPath, template.replace('@VEK_MODEL@', () => JSON.stringify(model))
  .replace('@VEK_SCENE@', () => glb(gltf, bin).toString('base64')));
