// What a page of `vektps view` should show, worked out without the page: the model and the glTF
// scene embedded in it, world-space bounds of each object's graphics, and their projection by a
// capture's camera as the model gives it (position, direction, zenith) with the scene's field of
// view.
'use strict';
const { pathToFileURL } = require('url');

// three.js's vectors and matrices, set by pageData: import() of the ES module (NODE_PATH reaches
// it only through require.resolve).
let Matrix4, Quaternion, Vector3;

function embedded(html, id) {
  const match = new RegExp(`<script id="${id}"[^>]*>([\\s\\S]*?)</script>`).exec(html);
  if (!match) throw new Error(`the page has no #${id}`);
  return match[1];
}

function parseGlb(bytes) {
  if (bytes.readUInt32LE(0) !== 0x46546c67) throw new Error('not a GLB');
  const length = bytes.readUInt32LE(12);
  const gltf = JSON.parse(bytes.subarray(20, 20 + length).toString('utf8'));
  const binLength = bytes.length >= 28 + length ? bytes.readUInt32LE(20 + length) : 0;
  return { gltf, bin: bytes.subarray(28 + length, 28 + length + binLength) };
}

// The model and the glTF JSON of a page, with the object node of each (set, family, position).
async function pageData(html) {
  ({ Matrix4, Quaternion, Vector3 } = await import(pathToFileURL(require.resolve('three/src/Three.Core.js'))));
  const model = JSON.parse(embedded(html, 'vek-model'));
  const { gltf, bin } = parseGlb(Buffer.from(embedded(html, 'vek-scene'), 'base64'));
  const objects = new Map();
  (gltf.nodes || []).forEach((node, index) => {
    const extras = node.extras || {};
    if (typeof extras.family === 'string') objects.set(`${extras.set}/${extras.family}/${extras.index}`, index);
  });
  return { model, gltf, bin, objects };
}

function localMatrix(node) {
  if (node.matrix) return new Matrix4().fromArray(node.matrix);
  return new Matrix4().compose(new Vector3(...(node.translation || [0, 0, 0])),
    new Quaternion(...(node.rotation || [0, 0, 0, 1])), new Vector3(...(node.scale || [1, 1, 1])));
}

function worldMatrices(gltf) {
  const world = new Map();
  const visit = (index, parent) => {
    const matrix = parent.clone().multiply(localMatrix(gltf.nodes[index]));
    world.set(index, matrix);
    for (const child of gltf.nodes[index].children || []) visit(child, matrix);
  };
  for (const root of gltf.scenes[gltf.scene || 0].nodes) visit(root, new Matrix4());
  return world;
}

// The elements of an accessor: float vertices, or index values (unsigned byte, short or int).
function elements(data, index) {
  const accessor = data.gltf.accessors[index];
  const view = data.gltf.bufferViews[accessor.bufferView];
  const start = (view.byteOffset || 0) + (accessor.byteOffset || 0);
  if (accessor.componentType === 5126) {
    return Array.from({ length: accessor.count }, (_, k) => [0, 4, 8].map((at) => data.bin.readFloatLE(start + k * (view.byteStride || 12) + at)));
  }
  const size = { 5121: 1, 5123: 2, 5125: 4 }[accessor.componentType];
  const read = { 1: 'readUInt8', 2: 'readUInt16LE', 4: 'readUInt32LE' }[size];
  return Array.from({ length: accessor.count }, (_, k) => data.bin[read](start + k * size));
}

// Vertex numbers grouped into the points (1), segments (2) or triangles (3) a glTF mode draws.
function shapes(order, mode) {
  const out = [];
  const n = order.length;
  if (mode === 0) order.forEach((v) => out.push([v]));
  if (mode === 1) for (let k = 0; k + 1 < n; k += 2) out.push([order[k], order[k + 1]]);
  if (mode === 2 || mode === 3) for (let k = 0; k + 1 < n; ++k) out.push([order[k], order[k + 1]]);
  if (mode === 2 && n > 2) out.push([order[n - 1], order[0]]);
  if (mode === 4) for (let k = 0; k + 2 < n; k += 3) out.push([order[k], order[k + 1], order[k + 2]]);
  if (mode === 5) for (let k = 0; k + 2 < n; ++k) out.push([order[k], order[k + 1], order[k + 2]]);
  if (mode === 6) for (let k = 1; k + 1 < n; ++k) out.push([order[0], order[k], order[k + 1]]);
  return out;
}

// The world-space points, segments and triangles (arrays of 1, 2 or 3 points) of every primitive
// below the object's node; empty when the object has no graphic.
function objectShapes(data, set, family, position) {
  const root = data.objects.get(`${set}/${family}/${position}`);
  if (root === undefined) return [];
  data.world = data.world || worldMatrices(data.gltf);
  const out = [];
  const visit = (index) => {
    const node = data.gltf.nodes[index];
    if (node.mesh !== undefined) {
      for (const primitive of data.gltf.meshes[node.mesh].primitives) {
        const points = elements(data, primitive.attributes.POSITION).map((v) => new Vector3(...v).applyMatrix4(data.world.get(index)));
        const order = primitive.indices === undefined ? points.map((_, k) => k) : elements(data, primitive.indices);
        for (const shape of shapes(order, primitive.mode ?? 4)) out.push(shape.map((v) => points[v]));
      }
    }
    for (const child of node.children || []) visit(child);
  };
  visit(root);
  return out;
}

const objectPoints = (data, set, family, position) => objectShapes(data, set, family, position).flat();

// The capture's camera from the model; the field of view from the scene's camera of that capture.
// Null when the model gives no position or the scene no camera.
function captureCamera(data, set, capture) {
  const camera = capture.camera || {};
  const position = data.model.sets[set].captures.indexOf(capture);
  const root = data.objects.get(`${set}/captures/${position}`);
  if (!camera.position || root === undefined) return null;
  const holder = (data.gltf.nodes[root].children || []).map((k) => data.gltf.nodes[k]).find((n) => n.camera !== undefined);
  if (!holder) return null;
  const eye = new Vector3(...camera.position);
  const forward = camera.direction && Math.hypot(...camera.direction) > 0
    ? new Vector3(...camera.direction).normalize() : new Vector3(...camera.target).sub(eye).normalize();
  const right = new Vector3().crossVectors(forward, new Vector3(...camera.zenith)).normalize();
  return { eye, forward, right, up: new Vector3().crossVectors(right, forward), yfov: data.gltf.cameras[holder.camera].perspective.yfov };
}

// Screen positions (CSS pixels) of world points; null for a point behind the camera.
function project(camera, viewport, points) {
  const halfHeight = Math.tan(camera.yfov / 2);
  const halfWidth = halfHeight * (viewport.width / viewport.height);
  return points.map((point) => {
    const v = point.clone().sub(camera.eye);
    const depth = v.dot(camera.forward);
    if (depth <= 0) return null;
    return [viewport.left + (1 + v.dot(camera.right) / (depth * halfWidth)) * viewport.width / 2,
      viewport.top + (1 - v.dot(camera.up) / (depth * halfHeight)) * viewport.height / 2];
  });
}

// The screen rectangle [x0, y0, x1, y1] of projected points clipped to the viewport, with
// `whole` set when nothing was clipped; 'everywhere' when a point lies behind the camera,
// 'nowhere' when none is on screen.
function rectOf(projected, viewport) {
  if (projected.some((p) => p === null)) return 'everywhere';
  if (projected.length === 0) return 'nowhere';
  const xs = projected.map((p) => p[0]);
  const ys = projected.map((p) => p[1]);
  // A flat graphic seen edge on still covers a line of pixels.
  const [x0, y0] = [Math.floor(Math.min(...xs)), Math.floor(Math.min(...ys))];
  const rect = [Math.max(x0, viewport.left), Math.max(y0, viewport.top),
    Math.min(Math.max(Math.ceil(Math.max(...xs)), x0 + 1), viewport.left + viewport.width),
    Math.min(Math.max(Math.ceil(Math.max(...ys)), y0 + 1), viewport.top + viewport.height)];
  if (!(rect[0] < rect[2] && rect[1] < rect[3])) return 'nowhere';
  const whole = Math.min(...xs) >= viewport.left && Math.max(...xs) <= viewport.left + viewport.width &&
    Math.min(...ys) >= viewport.top && Math.max(...ys) <= viewport.top + viewport.height;
  return Object.assign(rect.map(Math.round), { whole });
}

module.exports = { pageData, objectShapes, objectPoints, captureCamera, project, rectOf };
