// The page of `vektps view` in headless Chromium (WebGL through SwiftShader): for every capture of
// every page, opened at #capture=ID, the capture's annotations are drawn where its camera puts
// them and annotations it does not show are not; the panel lists the model's names; choosing an
// annotation highlights it and shows its values; nothing is logged as an error and nothing is
// fetched from the network.
// A generated document's page loads without errors; the time to its first frame is printed.
// Usage: node ViewTest.cjs VEKTPS VEKTPS_GENERATE OUT_DIR DOCUMENT... (NODE_PATH names web/'s
// node_modules); exits 77 without Chromium. VEK_VIEW_SCREENSHOT=FILE keeps a screenshot of the
// first document's first capture with one of its annotations chosen.
'use strict';
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');
const { pageData, objectShapes, objectPoints, captureCamera, project, rectOf } = require('./scene.cjs');

const CHROMIUM = process.env.VEK_CHROMIUM || '/usr/bin/chromium';
const BACKGROUND = [0xf5, 0xf6, 0xf8];
const SINGULAR = { annotations: 'annotation', views: 'view', captures: 'capture' };

const INK = 1;
const HIGHLIGHT = 2;
const ANNOTATION = 4;

// The pixels of a PNG screenshot, decoded by the browser itself: per pixel INK when it differs
// from the background, plus HIGHLIGHT when it has the highlight's orange hue, or ANNOTATION the
// blue the page draws annotations in when their graphic names no material.
async function pixelsOf(page, png) {
  const { width, height, classes } = await page.evaluate(async (png, background) => {
    const bitmap = await createImageBitmap(await (await fetch(`data:image/png;base64,${png}`)).blob());
    const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d');
    context.drawImage(bitmap, 0, 0);
    const data = context.getImageData(0, 0, bitmap.width, bitmap.height).data;
    let text = '';
    for (let k = 0; k < data.length; k += 4) {
      const [r, g, b] = [data[k], data[k + 1], data[k + 2]];
      const ink = Math.abs(r - background[0]) + Math.abs(g - background[1]) + Math.abs(b - background[2]) > 30;
      text += String.fromCharCode((ink ? 1 : 0) | (r - b > 100 && r - g > 30 ? 2 : 0) |
        (b - r > 50 && b - g > 30 ? 4 : 0));
    }
    return { width: bitmap.width, height: bitmap.height, classes: btoa(text) };
  }, png, BACKGROUND);
  const pixels = Buffer.from(classes, 'base64');
  // The pixels of class `bit` in rectangle [x0, y0, x1, y1].
  pixels.count = (rect, bit) => {
    let count = 0;
    for (let y = Math.max(rect[1], 0); y < Math.min(rect[3], height); ++y) {
      for (let x = Math.max(rect[0], 0); x < Math.min(rect[2], width); ++x) count += (pixels[y * width + x] & bit) !== 0;
    }
    return count;
  };
  return Object.assign(pixels, { width, height });
}

// 1 for each pixel of the page within `radius` of the screen points, segments and triangles of
// `shapes` or inside a rectangle of `rects` ([x0, y0, x1, y1]), as the browser's canvas draws them.
async function maskOf(page, pixels, shapes, radius, rects) {
  const mask = await page.evaluate((width, height, shapes, radius, rects) => {
    const context = new OffscreenCanvas(width, height).getContext('2d');
    Object.assign(context, { lineWidth: 2 * radius, lineJoin: 'round' });
    for (const shape of shapes) {
      context.beginPath();
      for (const [x, y] of shape) context.lineTo(x, y);
      context.closePath();
      context.fill();
      context.stroke();
      for (const [x, y] of shape) context.fillRect(x - radius, y - radius, 2 * radius, 2 * radius);
    }
    for (const [x0, y0, x1, y1] of rects) context.fillRect(x0, y0, x1 - x0, y1 - y0);
    const data = context.getImageData(0, 0, width, height).data;
    let text = '';
    for (let k = 3; k < data.length; k += 4) text += String.fromCharCode(data[k] ? 1 : 0);
    return btoa(text);
  }, pixels.width, pixels.height, shapes, radius, rects);
  return Buffer.from(mask, 'base64');
}

async function openAt(page, url) {
  await page.goto('about:blank');
  await page.goto(url);
  await page.waitForFunction('window.vekView && window.vekView.ready', { timeout: 30000 });
  // Two frames, so that the first rendered one has been presented.
  await nextFrames(page);
}

const inflate = (r, by) => [r[0] - by, r[1] - by, r[2] + by, r[3] + by];
const nextFrames = (page) => page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
const viewportOf = (page) => page.$eval('#viewport canvas', (canvas) => {
  const r = canvas.getBoundingClientRect();
  return { left: r.left, top: r.top, width: r.width, height: r.height };
});
const positionOf = (data, set, family, id) => data.model.sets[set][family].findIndex((object) => object.id === id);

async function checkCapture(page, file, data, set, capture) {
  await openAt(page, `file://${file}#capture=${capture.id}`);
  const viewport = await viewportOf(page);
  const camera = captureCamera(data, set, capture);
  const pixels = await pixelsOf(page, await page.screenshot({ encoding: 'base64' }));
  // Each extreme vertex is drawn, so a wholly visible annotation has ink along all four edges of
  // its rectangle; unless it is seen edge on, when its triangles vanish.
  let drawn = 0;
  for (const id of capture.annotations) {
    const points = objectPoints(data, set, 'annotations', positionOf(data, set, 'annotations', id));
    const r = points.length ? rectOf(project(camera, viewport, points), viewport) : null;
    if (!Array.isArray(r)) continue;
    drawn += 1;
    const edged = r.whole && r[2] - r[0] >= 4 && r[3] - r[1] >= 4;
    const bands = edged
      ? { left: [r[0] - 3, r[1] - 3, r[0] + 3, r[3] + 3], right: [r[2] - 3, r[1] - 3, r[2] + 3, r[3] + 3],
        top: [r[0] - 3, r[1] - 3, r[2] + 3, r[1] + 3], bottom: [r[0] - 3, r[3] - 3, r[2] + 3, r[3] + 3] }
      : { any: inflate(r, 2) };
    for (const [side, band] of Object.entries(bands)) {
      assert(pixels.count(band, INK) > 0,
        `${file} capture ${capture.id}: annotation ${id} is not drawn at the ${side} of ${JSON.stringify(r)}`);
    }
  }

  // Nothing is drawn where none of what the capture shows projects (lines, points and
  // antialiasing reach a few pixels further), but for the status line; and no annotation blue
  // where none of its annotations does.
  const shapesOf = (family, ids) => ids.flatMap((id) => objectShapes(data, set, family, positionOf(data, set, family, id)));
  const annotations = shapesOf('annotations', capture.annotations);
  const shown = [
    ...annotations, ...shapesOf('captures', [capture.id]), ...shapesOf('cgs', capture.cgs),
    ...shapesOf('views', capture.views),
    ...['ttrs', 'refFrames'].flatMap((family) => shapesOf(family, data.model.sets[set][family].map((o) => o.id))),
  ];
  // Every point, segment and triangle of what the capture shows is drawn, once.
  const vertices = await page.evaluate(() => {
    const counts = [0, 0, 0];
    window.vekView.viewer.batch.traverse((o) => {
      if (o.geometry) counts[o.isPoints ? 0 : o.isMesh ? 2 : 1] += o.geometry.attributes.position.count;
    });
    return counts;
  });
  const expectedVertices = [0, 0, 0];
  for (const shape of shown) expectedVertices[shape.length - 1] += shape.length;
  assert.deepStrictEqual(vertices, expectedVertices, `${file} capture ${capture.id}: vertices of points, segments, triangles`);
  const status = await page.$eval('#status', (node) => {
    const r = node.getBoundingClientRect();
    return [r.left - 2, r.top - 2, r.right + 2, r.bottom + 2];
  });
  let strayChecked = 0;
  for (const [what, shapes, bit] of [['anything', shown, INK], ['annotation blue', annotations, ANNOTATION]]) {
    // What lies behind the camera covers what is not worked out.
    const screen = shapes.map((shape) => project(camera, viewport, shape));
    if (screen.some((shape) => shape.includes(null))) continue;
    const expected = await maskOf(page, pixels, screen, 4, [status]);
    strayChecked += 1;
    let stray = 0;
    let first = null;
    for (let y = Math.round(viewport.top); y < Math.round(viewport.top + viewport.height); ++y) {
      for (let x = Math.round(viewport.left); x < Math.round(viewport.left + viewport.width); ++x) {
        if ((pixels[y * pixels.width + x] & bit) !== 0 && !expected[y * pixels.width + x]) {
          first = first || [x, y];
          ++stray;
        }
      }
    }
    assert.strictEqual(stray, 0, `${file} capture ${capture.id}: ${stray} pixels of ${what} drawn where ` +
      `nothing the capture shows projects, the first at ${first}`);
  }
  return { drawn, strayChecked };
}

async function checkPanel(page, data) {
  const listed = await page.evaluate(() => [...document.querySelectorAll('#lists li')]
    .map((li) => [+li.dataset.set, li.dataset.family, li.textContent]));
  const expected = [];
  data.model.sets.forEach((set, s) => {
    for (const family of ['captures', 'views', 'annotations']) {
      for (const object of set[family]) expected.push([s, family, object.name || `${SINGULAR[family]} ${object.id ?? '(no id)'}`]);
    }
  });
  assert.deepStrictEqual(listed, expected);
}

// Chooses the first annotation a capture shows: its values appear and it turns the highlight colour.
async function checkHighlight(page, file, data, set, capture, screenshotPath) {
  const id = capture.annotations.find((k) => objectPoints(data, set, 'annotations', positionOf(data, set, 'annotations', k)).length);
  if (id === undefined) return;
  const position = positionOf(data, set, 'annotations', id);
  const annotation = data.model.sets[set].annotations[position];
  await page.click(`#lists li[data-set="${set}"][data-family="annotations"][data-index="${position}"]`);
  await nextFrames(page);
  const rows = Object.fromEntries(await page.$$eval('#details tr',
    (trs) => trs.map((tr) => [tr.cells[0].textContent, tr.cells[1].textContent])));
  const expected = { Id: String(id), Value: annotation.value, Attribute: annotation.attribute };
  for (const [name, value] of Object.entries(expected)) {
    if (value !== null) assert.strictEqual(rows[name], String(value), `${file}: ${name} of annotation ${id}`);
  }
  assert(rows['Shown in captures'].split(', ').includes(capture.name), `${file}: annotation ${id} names its capture`);
  const viewport = await viewportOf(page);
  const rect = rectOf(project(captureCamera(data, set, capture), viewport, objectPoints(data, set, 'annotations', position)), viewport);
  if (rect === 'everywhere' || rect === 'nowhere') return;
  const png = await page.screenshot({ encoding: 'base64' });
  if (screenshotPath) fs.writeFileSync(screenshotPath, Buffer.from(png, 'base64'));
  const pixels = await pixelsOf(page, png);
  assert(pixels.count(inflate(rect, 2), HIGHLIGHT) > 0, `${file}: annotation ${id} is not highlighted`);
}

async function main() {
  const [tool, generator, outDir, ...documents] = process.argv.slice(2);
  if (!fs.existsSync(CHROMIUM)) {
    console.log(`SKIP: no Chromium at ${CHROMIUM}; scripts/setup installs Debian's chromium`);
    process.exit(77);
  }
  const generated = path.join(outDir, 'generated_current_3000.xml');
  execFileSync(generator, ['-n', '3000', '--seed', '11', '-o', generated], { stdio: 'ignore' });
  const pageOf = (document) => {
    const file = path.resolve(outDir, `${path.basename(document)}.html`);
    execFileSync(tool, ['view', document, '-o', file]);
    return file;
  };
  const puppeteer = require('puppeteer-core');
  const browser = await puppeteer.launch({
    executablePath: CHROMIUM,
    headless: true,
    args: ['--no-sandbox', '--use-angle=swiftshader', '--enable-unsafe-swiftshader', '--window-size=1280,800'],
  });
  try {
    const page = await browser.newPage();
    await page.setViewport({ width: 1280, height: 800, deviceScaleFactor: 1 });
    const errors = [];
    page.on('console', (message) => { if (message.type() === 'error') errors.push(message.text()); });
    page.on('pageerror', (error) => errors.push(error.message));
    // The page works offline: it asks for nothing but itself.
    page.on('request', (request) => {
      if (!/^(file|data|about):/.test(request.url())) errors.push(`fetched ${request.url()}`);
    });
    let screenshot = process.env.VEK_VIEW_SCREENSHOT;
    // Counted over the documents so far.
    const all = { captures: 0, drawn: 0, strayChecked: 0 };
    for (const document of documents) {
      const file = pageOf(document);
      const data = await pageData(fs.readFileSync(file, 'utf8'));
      const before = all.captures;
      for (const [set, { captures }] of data.model.sets.entries()) {
        for (const capture of captures) {
          if (capture.id === null || !captureCamera(data, set, capture)) continue;
          const counts = await checkCapture(page, file, data, set, capture);
          all.captures += 1;
          all.drawn += counts.drawn;
          all.strayChecked += counts.strayChecked;
          if (all.captures === before + 1) await checkPanel(page, data);
          await checkHighlight(page, file, data, set, capture, screenshot);
          screenshot = null;
        }
      }
      assert(all.captures > before, `${file}: no capture was checked`);
      assert.deepStrictEqual(errors, [], `${file}: console errors`);
      console.log(`${path.basename(document)}: ${JSON.stringify(all)}`);
    }
    assert(all.drawn > 0 && all.strayChecked > 0, `nothing was checked: ${JSON.stringify(all)}`);
    // A generated document's captures look anywhere: its page is checked for loading, names and
    // errors, with the time to its first frame.
    const file = pageOf(generated);
    await openAt(page, `file://${file}`);
    await checkPanel(page, await pageData(fs.readFileSync(file, 'utf8')));
    const readyMs = await page.evaluate(() => Math.round(window.vekView.readyMs));
    assert.deepStrictEqual(errors, [], `${file}: console errors`);
    console.log(`${path.basename(generated)}: first frame after ${readyMs} ms`);
  } finally {
    await browser.close();
  }
}

main().catch((error) => {
  console.error(error.stack || String(error));
  process.exit(1);
});
