// What a page of `vektps view` should show, worked out without the page: the model and the glTF
// scene embedded in it, world-space bounds of each object's graphics, and their projection by a
// capture's camera as the model gives it (position, direction, zenith) with the scene's field of
// view.
'use strict';

function embedded(html, id) {
  const match = new RegExp(`<script id="${id}"[^>]*>([\\s\\S]*?)</script>`).exec(html);
  if (!match) throw new Error(`the page has no #${id}`);
  return match[1];
}

function parseGlb(bytes) {
  if (bytes.readUInt32LE(0) !== 0x46546c67) throw new Error('not a GLB');
  const length = bytes.readUInt32LE(12);
  const gltf = JSON.parse(bytes.subarray(20, 20 + length).toString('utf8'));
  return { gltf, bin: bytes.subarray(28 + length, 28 + length + bytes.readUInt32LE(20 + length)) };
}

// The model and the glTF JSON of a page, with the object node of each (set, family, position).
function pageData(html) {
  const model = JSON.parse(embedded(html, 'vek-model'));
  const { gltf, bin } = parseGlb(Buffer.from(embedded(html, 'vek-scene'), 'base64'));
  const objects = new Map();
  (gltf.nodes || []).forEach((node, index) => {
    const extras = node.extras || {};
    if (typeof extras.family === 'string') objects.set(`${extras.set}/${extras.family}/${extras.index}`, index);
  });
  return { model, gltf, bin, objects };
}

const IDENTITY = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];

function multiply(a, b) {
  const out = new Array(16).fill(0);
  for (let column = 0; column < 4; ++column) {
    for (let row = 0; row < 4; ++row) {
      for (let k = 0; k < 4; ++k) out[column * 4 + row] += a[k * 4 + row] * b[column * 4 + k];
    }
  }
  return out;
}

function localMatrix(node) {
  if (node.matrix) return node.matrix;
  const [x, y, z, w] = node.rotation || [0, 0, 0, 1];
  const [sx, sy, sz] = node.scale || [1, 1, 1];
  const [tx, ty, tz] = node.translation || [0, 0, 0];
  return [
    (1 - 2 * (y * y + z * z)) * sx, 2 * (x * y + z * w) * sx, 2 * (x * z - y * w) * sx, 0,
    2 * (x * y - z * w) * sy, (1 - 2 * (x * x + z * z)) * sy, 2 * (y * z + x * w) * sy, 0,
    2 * (x * z + y * w) * sz, 2 * (y * z - x * w) * sz, (1 - 2 * (x * x + y * y)) * sz, 0,
    tx, ty, tz, 1,
  ];
}

function worldMatrices(gltf) {
  const world = new Map();
  const visit = (index, parent) => {
    const matrix = multiply(parent, localMatrix(gltf.nodes[index]));
    world.set(index, matrix);
    for (const child of gltf.nodes[index].children || []) visit(child, matrix);
  };
  for (const root of gltf.scenes[gltf.scene || 0].nodes) visit(root, IDENTITY);
  return world;
}

const apply = (m, [x, y, z]) => [0, 1, 2].map((r) => m[r] * x + m[4 + r] * y + m[8 + r] * z + m[12 + r]);

// The float vertices of an accessor.
function vertices(data, index) {
  const accessor = data.gltf.accessors[index];
  const view = data.gltf.bufferViews[accessor.bufferView];
  const stride = view.byteStride || 12;
  const start = (view.byteOffset || 0) + (accessor.byteOffset || 0);
  const out = [];
  for (let k = 0; k < accessor.count; ++k) {
    out.push([0, 4, 8].map((at) => data.bin.readFloatLE(start + k * stride + at)));
  }
  return out;
}

// The world-space vertices of every primitive below the object's node; empty when the object has
// no graphic.
function objectPoints(data, set, family, position) {
  const root = data.objects.get(`${set}/${family}/${position}`);
  if (root === undefined) return [];
  data.world = data.world || worldMatrices(data.gltf);
  const points = [];
  const visit = (index) => {
    const node = data.gltf.nodes[index];
    if (node.mesh !== undefined) {
      for (const primitive of data.gltf.meshes[node.mesh].primitives) {
        for (const vertex of vertices(data, primitive.attributes.POSITION)) {
          points.push(apply(data.world.get(index), vertex));
        }
      }
    }
    for (const child of node.children || []) visit(child);
  };
  visit(root);
  return points;
}

const sub = (a, b) => a.map((v, k) => v - b[k]);
const dot = (a, b) => a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
const cross = (a, b) => [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
const normalize = (a) => a.map((v) => v / Math.hypot(...a));

// The capture's camera from the model; the field of view from the scene's camera of that capture.
// Null when the model gives no position or the scene no camera.
function captureCamera(data, set, capture) {
  const camera = capture.camera || {};
  const position = data.model.sets[set].captures.indexOf(capture);
  const root = data.objects.get(`${set}/captures/${position}`);
  if (!camera.position || root === undefined) return null;
  const holder = (data.gltf.nodes[root].children || []).map((k) => data.gltf.nodes[k]).find((n) => n.camera !== undefined);
  if (!holder) return null;
  let forward = camera.direction && Math.hypot(...camera.direction) > 0 ? camera.direction : sub(camera.target, camera.position);
  forward = normalize(forward);
  const right = normalize(cross(forward, camera.zenith));
  return {
    eye: camera.position, forward, right, up: cross(right, forward),
    yfov: data.gltf.cameras[holder.camera].perspective.yfov,
  };
}

// Screen positions (CSS pixels) of world points; null for a point behind the camera.
function project(camera, viewport, points) {
  const halfHeight = Math.tan(camera.yfov / 2);
  const halfWidth = halfHeight * (viewport.width / viewport.height);
  return points.map((point) => {
    const v = sub(point, camera.eye);
    const depth = dot(v, camera.forward);
    if (depth <= 0) return null;
    return [viewport.left + (1 + dot(v, camera.right) / (depth * halfWidth)) * viewport.width / 2,
      viewport.top + (1 - dot(v, camera.up) / (depth * halfHeight)) * viewport.height / 2];
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
  const rect = [Math.max(Math.floor(Math.min(...xs)), viewport.left), Math.max(Math.floor(Math.min(...ys)), viewport.top),
    Math.min(Math.ceil(Math.max(...xs)), viewport.left + viewport.width), Math.min(Math.ceil(Math.max(...ys)), viewport.top + viewport.height)];
  if (!(rect[0] < rect[2] && rect[1] < rect[3])) return 'nowhere';
  const whole = Math.min(...xs) >= viewport.left && Math.max(...xs) <= viewport.left + viewport.width &&
    Math.min(...ys) >= viewport.top && Math.max(...ys) <= viewport.top + viewport.height;
  return Object.assign(rect.map(Math.round), { whole });
}

module.exports = { pageData, objectPoints, captureCamera, project, rectOf };
