// Many small drawables cost a draw call each; merged into one mesh, line set or point set per
// material they cost a few, which keeps documents with thousands of annotations responsive.
import * as THREE from 'three';

function kindOf(object) {
  if (object.isMesh) return 'mesh';
  if (object.isPoints) return 'points';
  if (object.isLine) return 'lines';
  return null;
}

// The vertex numbers drawn, in the order the merged (non-indexed) geometry needs them: triangles
// and points as they are, line strips and loops as segment pairs.
function drawOrder(object, kind) {
  const geometry = object.geometry;
  const index = geometry.index;
  const count = index ? index.count : geometry.attributes.position.count;
  const vertex = index ? (k) => index.getX(k) : (k) => k;
  const order = [];
  if (kind === 'lines' && !object.isLineSegments) {
    for (let k = 0; k + 1 < count; ++k) order.push(vertex(k), vertex(k + 1));
    if (object.isLineLoop && count > 2) order.push(vertex(count - 1), vertex(0));
    return order;
  }
  const whole = kind === 'mesh' ? count - (count % 3) : kind === 'lines' ? count - (count % 2) : count;
  for (let k = 0; k < whole; ++k) order.push(vertex(k));
  return order;
}

function worldPositions(object, kind) {
  const position = object.geometry.attributes.position;
  if (!position) return new Float32Array(0);
  const order = drawOrder(object, kind);
  const out = new Float32Array(order.length * 3);
  const point = new THREE.Vector3();
  for (let k = 0; k < order.length; ++k) {
    point.fromBufferAttribute(position, order[k]).applyMatrix4(object.matrixWorld);
    out[3 * k] = point.x;
    out[3 * k + 1] = point.y;
    out[3 * k + 2] = point.z;
  }
  return out;
}

// A group holding the merged world-space geometry of `drawables` (meshes, lines and points whose
// matrixWorld is current); `materialFor(object)` gives the material each is drawn with.
export function mergeDrawables(drawables, materialFor) {
  const groups = new Map();
  for (const object of drawables) {
    const kind = kindOf(object);
    if (!kind) continue;
    const material = materialFor(object);
    const key = kind + ':' + material.uuid;
    let group = groups.get(key);
    if (!group) groups.set(key, (group = { kind, material, parts: [], length: 0 }));
    const positions = worldPositions(object, kind);
    group.parts.push(positions);
    group.length += positions.length;
  }
  const merged = new THREE.Group();
  for (const group of groups.values()) {
    if (group.length === 0) continue;
    const positions = new Float32Array(group.length);
    let offset = 0;
    for (const part of group.parts) {
      positions.set(part, offset);
      offset += part.length;
    }
    const geometry = new THREE.BufferGeometry();
    geometry.setAttribute('position', new THREE.BufferAttribute(positions, 3));
    if (group.kind === 'mesh') {
      geometry.computeVertexNormals();
      merged.add(new THREE.Mesh(geometry, group.material));
    } else if (group.kind === 'lines') {
      merged.add(new THREE.LineSegments(geometry, group.material));
    } else {
      merged.add(new THREE.Points(geometry, group.material));
    }
  }
  return merged;
}

// Every mesh, line and point set below `root`.
export function drawablesOf(root) {
  const found = [];
  root.traverse((object) => {
    if (kindOf(object)) found.push(object);
  });
  return found;
}

export { kindOf };
