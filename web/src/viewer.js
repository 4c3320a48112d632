// The page of `vektps view`: the scene of one document (binary glTF, base64 in #vek-scene) and its
// model (the JSON export, in #vek-model), drawn with three.js beside a panel of names.
import * as THREE from 'three';
import { GLTFLoader } from 'three/examples/jsm/loaders/GLTFLoader.js';
import { OrbitControls } from 'three/examples/jsm/controls/OrbitControls.js';
import { drawablesOf, kindOf, mergeDrawables } from './merge.js';
import { Panel } from './panel.js';

const BACKGROUND = 0xf5f6f8;
const HIGHLIGHT = 0xff6a00;
const FAMILY_COLORS = {
  annotations: 0x1747a6, ttrs: 0x8a9099, refFrames: 0x7b3fa0, cgs: 0x2e7d32, views: 0x5c6370, captures: 0x9aa0a8,
};
// Drawn in every capture and view, and cut by a capture's clipping plane; annotations never are.
const PART_FAMILIES = new Set(['ttrs', 'refFrames']);
const WHOLE_MODEL_DIRECTION = new THREE.Vector3(-1, 1, -0.8).normalize();
const Z_UP = new THREE.Vector3(0, 0, 1);

function decodeBase64(text) {
  const binary = atob(text.trim());
  const bytes = new Uint8Array(binary.length);
  for (let k = 0; k < binary.length; ++k) bytes[k] = binary.charCodeAt(k);
  return bytes.buffer;
}

const keyOf = (set, family, position) => `${set}/${family}/${position}`;

// Positions of objects by id, per set and family: the first object carrying an id wins, as in the
// library's id broker.
class IdIndex {
  constructor(model) {
    this.maps = model.sets.map((set) => {
      const families = {};
      for (const family of Object.keys(FAMILY_COLORS)) {
        const map = new Map();
        (set[family] || []).forEach((object, position) => {
          if (object.id !== null && !map.has(object.id)) map.set(object.id, position);
        });
        families[family] = map;
      }
      return families;
    });
  }

  find(set, family, id) {
    const position = this.maps[set]?.[family]?.get(id);
    return position === undefined ? -1 : position;
  }
}

class Viewer {
  constructor(model, gltf) {
    this.model = model;
    this.index = new IdIndex(model);
    this.parser = gltf.parser;
    this.objects = new Map();
    this.materials = new Map();
    this.batches = new Map();
    gltf.scene.updateMatrixWorld(true);
    gltf.scene.traverse((node) => {
      const extras = node.userData;
      if (typeof extras.family !== 'string' || !Number.isInteger(extras.set) || !Number.isInteger(extras.index)) return;
      let camera = null;
      node.traverse((child) => { if (child.isCamera && !camera) camera = child; });
      this.objects.set(keyOf(extras.set, extras.family, extras.index),
        { node, family: extras.family, camera, drawables: drawablesOf(node) });
    });

    const viewport = document.getElementById('viewport');
    this.renderer = new THREE.WebGLRenderer({ antialias: true });
    this.renderer.setPixelRatio(window.devicePixelRatio);
    this.renderer.setClearColor(BACKGROUND);
    this.renderer.localClippingEnabled = true;
    viewport.prepend(this.renderer.domElement);
    this.scene = new THREE.Scene();
    this.camera = new THREE.PerspectiveCamera(45, 1, 0.1, 1000);
    this.scene.add(new THREE.HemisphereLight(0xffffff, 0x8890a0, 2.2));
    const headlight = new THREE.DirectionalLight(0xffffff, 1.2);
    this.camera.add(headlight);
    this.scene.add(this.camera);
    this.overlay = new THREE.Group();
    this.overlay.renderOrder = 10;
    this.scene.add(this.overlay);
    this.batch = null;
    this.bounds = new THREE.Sphere();
    this.controls = null;
    this.pending = false;

    this.panel = new Panel(model, this.index, (set, family, position) => this.choose(set, family, position));
    document.getElementById('whole').addEventListener('click', () => {
      history.replaceState(null, '', location.pathname + location.search);
      this.showWholeModel();
    });
    new ResizeObserver(() => this.resize()).observe(viewport);
    window.addEventListener('hashchange', () => this.followHash());
    this.resize();
    if (!this.followHash()) this.showWholeModel();
  }

  // #capture=ID opens the first capture carrying ID; false when the fragment names none.
  followHash() {
    const match = /(?:^#|&)capture=([^&]*)/.exec(location.hash);
    if (!match) return false;
    const id = Number(decodeURIComponent(match[1]));
    for (let set = 0; set < this.model.sets.length; ++set) {
      const position = this.index.find(set, 'captures', id);
      if (position >= 0) {
        this.showCapture(set, position);
        return true;
      }
    }
    this.status(`No capture ${match[1]} in this document`);
    return false;
  }

  choose(set, family, position) {
    if (family === 'captures') {
      const id = this.model.sets[set].captures[position].id;
      if (id !== null) history.replaceState(null, '', `#capture=${id}`);
      this.showCapture(set, position);
    } else if (family === 'views') {
      this.showView(set, position);
    } else {
      this.highlight(set, family, position);
    }
  }

  // The material an object is drawn with: its own when the document gave one, else its family's.
  materialFor(object, family, clipping) {
    const association = this.parser.associations.get(object.material);
    const kind = kindOf(object);
    const own = association && association.materials !== undefined;
    const key = `${own ? object.material.uuid : family}:${kind}:${clipping ? clipping.uuid : ''}`;
    let material = this.materials.get(key);
    if (material) return material;
    if (own) {
      material = object.material.clone();
      material.vertexColors = false;
    } else {
      const color = FAMILY_COLORS[family] ?? FAMILY_COLORS.views;
      material = kind === 'mesh'
        ? new THREE.MeshLambertMaterial({ color, side: THREE.DoubleSide, polygonOffset: true, polygonOffsetFactor: 1, polygonOffsetUnits: 1 })
        : kind === 'lines' ? new THREE.LineBasicMaterial({ color })
          : new THREE.PointsMaterial({ color, size: 5, sizeAttenuation: false });
    }
    if (clipping) material.clippingPlanes = [clipping.plane];
    this.materials.set(key, material);
    return material;
  }

  // Merged geometry of the objects in `keys`, built once by name; `clipping` cuts the part.
  batchOf(name, keys, clipping = null) {
    let batch = this.batches.get(name);
    if (batch) return batch;
    const drawables = [];
    const families = new Map();
    for (const key of keys) {
      const entry = this.objects.get(key);
      if (!entry) continue;
      for (const drawable of entry.drawables) {
        drawables.push(drawable);
        families.set(drawable, entry.family);
      }
    }
    batch = mergeDrawables(drawables, (object) => {
      const family = families.get(object);
      return this.materialFor(object, family, PART_FAMILIES.has(family) ? clipping : null);
    });
    this.batches.set(name, batch);
    return batch;
  }

  keysOf(set, family, ids) {
    return (ids || []).map((id) => keyOf(set, family, this.index.find(set, family, id)));
  }

  // The part, drawn in every capture and view: merged once per clipping plane.
  partBatch(clipping = null) {
    const keys = [];
    this.model.sets.forEach((set, s) => {
      for (const family of PART_FAMILIES) (set[family] || []).forEach((_, k) => keys.push(keyOf(s, family, k)));
    });
    return this.batchOf(`part ${clipping ? clipping.uuid : ''}`, keys, clipping);
  }

  display(batches) {
    if (this.batch) this.scene.remove(this.batch);
    this.batch = new THREE.Group();
    this.batch.add(...batches);
    this.scene.add(this.batch);
    const box = new THREE.Box3().setFromObject(this.batch);
    if (box.isEmpty()) box.set(new THREE.Vector3(-1, -1, -1), new THREE.Vector3(1, 1, 1));
    box.getBoundingSphere(this.bounds);
    this.bounds.radius = Math.max(this.bounds.radius, 1e-6);
  }

  showWholeModel() {
    const keys = [];
    for (const [key, entry] of this.objects) if (entry.family !== 'captures') keys.push(key);
    this.display([this.batchOf('whole', keys)]);
    const distance = this.bounds.radius / Math.sin(THREE.MathUtils.degToRad(this.camera.fov) / 2);
    const forward = WHOLE_MODEL_DIRECTION;
    this.aim(this.bounds.center.clone().addScaledVector(forward, -distance), forward, Z_UP, distance, 45);
    this.panel.show(null);
    this.clearHighlight();
    this.status('Whole model');
  }

  showCapture(set, position) {
    const capture = this.model.sets[set].captures[position];
    const key = keyOf(set, 'captures', position);
    const entry = this.objects.get(key);
    const camera = entry?.camera;
    const keys = [key, ...this.keysOf(set, 'annotations', capture.annotations),
      ...this.keysOf(set, 'cgs', capture.cgs), ...this.keysOf(set, 'views', capture.views)];
    this.display([this.partBatch(this.clippingOf(set, capture)), this.batchOf(`capture ${key}`, keys)]);
    if (camera) {
      const matrix = camera.matrixWorld.elements;
      const eye = new THREE.Vector3().setFromMatrixPosition(camera.matrixWorld);
      const up = new THREE.Vector3(matrix[4], matrix[5], matrix[6]).normalize();
      const forward = new THREE.Vector3(-matrix[8], -matrix[9], -matrix[10]).normalize();
      const target = camera.userData.target ? new THREE.Vector3(...camera.userData.target) : this.bounds.center;
      this.aim(eye, forward, up, target.clone().sub(eye).dot(forward), camera.fov);
    }
    this.panel.show(set, 'captures', position);
    this.clearHighlight();
    this.status(`Capture: ${this.panel.chosen?.textContent ?? capture.id}`);
  }

  // A capture with a clipping setting cuts the part at its active view's plane, keeping what lies
  // behind the plane as seen along the view's normal.
  clippingOf(set, capture) {
    if (!capture.clippingPlane) return null;
    const position = this.index.find(set, 'views', capture.activeView);
    const view = position >= 0 ? this.model.sets[set].views[position] : null;
    if (!view?.origin || !view?.normal) return null;
    const normal = new THREE.Vector3(...view.normal);
    if (normal.lengthSq() === 0) return null;
    normal.normalize().negate();
    const plane = new THREE.Plane().setFromNormalAndCoplanarPoint(normal, new THREE.Vector3(...view.origin));
    return { plane, uuid: `${set}/${position}` };
  }

  showView(set, position) {
    const view = this.model.sets[set].views[position];
    const key = keyOf(set, 'views', position);
    this.display([this.partBatch(), this.batchOf(`view ${key}`, [key, ...this.keysOf(set, 'annotations', view.annotations)])]);
    const normal = new THREE.Vector3(...(view.normal || [0, 0, 1]));
    const across = new THREE.Vector3(...(view.direction || [1, 0, 0]));
    if (normal.lengthSq() === 0) normal.set(0, 0, 1);
    normal.normalize();
    let up = normal.clone().cross(across);
    if (up.lengthSq() < 1e-12) up = Math.abs(normal.z) < 0.9 ? Z_UP.clone() : new THREE.Vector3(0, 1, 0);
    const origin = new THREE.Vector3(...(view.origin || this.bounds.center.toArray()));
    const distance = this.bounds.radius / Math.sin(THREE.MathUtils.degToRad(45) / 2) +
      Math.max(0, this.bounds.center.clone().sub(origin).dot(normal));
    this.aim(origin.clone().addScaledVector(normal, distance), normal.clone().negate(), up.normalize(), distance, 45);
    this.panel.show(set, 'views', position);
    this.clearHighlight();
    this.status(`View: ${this.panel.chosen?.textContent ?? view.id}`);
  }

  // Puts the camera at `eye` looking along `forward` with `up`, orbiting about the point `depth`
  // ahead (or the middle of what is shown when that is not ahead).
  aim(eye, forward, up, depth, fov) {
    if (!(depth > 1e-9)) depth = Math.max(this.bounds.center.clone().sub(eye).dot(forward), this.bounds.radius);
    this.camera.fov = fov;
    this.camera.up.copy(up);
    this.camera.position.copy(eye);
    if (this.controls) this.controls.dispose();
    this.controls = new OrbitControls(this.camera, this.renderer.domElement);
    this.controls.target.copy(eye).addScaledVector(forward, depth);
    this.controls.addEventListener('change', () => this.requestRender());
    this.controls.update();
    this.requestRender();
  }

  highlight(set, family, position) {
    this.clearHighlight();
    const entry = this.objects.get(keyOf(set, family, position));
    if (entry) {
      const copy = entry.node.clone();
      copy.matrixAutoUpdate = false;
      copy.matrix.copy(entry.node.matrixWorld);
      copy.traverse((object) => {
        const kind = kindOf(object);
        if (!kind) return;
        object.renderOrder = 10;
        object.material = kind === 'mesh'
          ? new THREE.MeshBasicMaterial({ color: HIGHLIGHT, depthTest: false, transparent: true, opacity: 0.85, side: THREE.DoubleSide })
          : kind === 'lines' ? new THREE.LineBasicMaterial({ color: HIGHLIGHT, depthTest: false })
            : new THREE.PointsMaterial({ color: HIGHLIGHT, size: 7, sizeAttenuation: false, depthTest: false });
      });
      this.overlay.add(copy);
    }
    this.panel.show(set, family, position);
    this.requestRender();
  }

  clearHighlight() {
    for (const copy of this.overlay.children) {
      copy.traverse((object) => { if (kindOf(object)) object.material.dispose(); });
    }
    this.overlay.clear();
    this.requestRender();
  }

  status(text) {
    document.getElementById('status').textContent = text;
  }

  resize() {
    const canvas = this.renderer.domElement.parentElement;
    const width = Math.max(canvas.clientWidth, 1);
    const height = Math.max(canvas.clientHeight, 1);
    this.renderer.setSize(width, height);
    this.camera.aspect = width / height;
    this.camera.updateProjectionMatrix();
    this.requestRender();
  }

  requestRender() {
    if (this.pending) return;
    this.pending = true;
    requestAnimationFrame(() => {
      this.pending = false;
      this.render();
    });
  }

  render() {
    const distance = this.camera.position.distanceTo(this.bounds.center);
    this.camera.near = Math.max((distance - this.bounds.radius) * 0.5, this.bounds.radius * 1e-4);
    this.camera.far = distance + this.bounds.radius * 2;
    this.camera.updateProjectionMatrix();
    this.renderer.render(this.scene, this.camera);
    if (!window.vekView.ready) {
      // Milliseconds from the start of navigation to the first frame, for measurements.
      window.vekView.readyMs = performance.now();
      window.vekView.ready = true;
    }
  }
}

async function main() {
  window.vekView = { ready: false };
  const model = JSON.parse(document.getElementById('vek-model').textContent);
  const gltf = await new GLTFLoader().parseAsync(decodeBase64(document.getElementById('vek-scene').textContent), '');
  window.vekView.viewer = new Viewer(model, gltf);
}

main().catch((error) => {
  document.getElementById('status').textContent = `This page could not show the document: ${error.message}`;
  console.error(error);
});
