// The page of `vektps view` in headless Chromium (WebGL through SwiftShader): for every capture of
// every page, opened at #capture=ID, the capture's annotations are drawn where its camera puts
// them and annotations it does not show are not; the panel lists the model's names; choosing an
// annotation highlights it and shows its values; nothing is logged as an error.
// Usage: node ViewTest.cjs PAGE.html... (NODE_PATH names web/'s node_modules); exits 77 without
// Chromium. VEK_VIEW_SCREENSHOT=FILE keeps the first capture's screenshot of the first page.
'use strict';
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { pageData, objectPoints, captureCamera, project, rectOf } = require('./scene.cjs');

const CHROMIUM = process.env.VEK_CHROMIUM || '/usr/bin/chromium';
const BACKGROUND = [0xf5, 0xf6, 0xf8];
const SINGULAR = { annotations: 'annotation', views: 'view', captures: 'capture' };

// Counts in a PNG screenshot, per rectangle [x0, y0, x1, y1] of `rects`, the pixels that differ
// from the background and those of the highlight colour; and, when `allowed` is given, the pixels
// of `area` that differ from the background outside every rectangle of `allowed`. Decoded by the
// browser itself.
function inkOf(page, png, rects, allowed = null, area = null) {
  return page.evaluate(async (png, rects, allowed, area, background) => {
    const bitmap = await createImageBitmap(await (await fetch(`data:image/png;base64,${png}`)).blob());
    const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d');
    context.drawImage(bitmap, 0, 0);
    const scan = (rect, visit) => {
      const [x0, y0] = [Math.max(rect[0], 0), Math.max(rect[1], 0)];
      const [x1, y1] = [Math.min(rect[2], bitmap.width), Math.min(rect[3], bitmap.height)];
      if (x1 <= x0 || y1 <= y0) return;
      const data = context.getImageData(x0, y0, x1 - x0, y1 - y0).data;
      for (let k = 0; k < data.length; k += 4) {
        const [r, g, b] = [data[k], data[k + 1], data[k + 2]];
        const x = x0 + ((k / 4) % (x1 - x0));
        const y = y0 + Math.floor(k / 4 / (x1 - x0));
        const ink = Math.abs(r - background[0]) + Math.abs(g - background[1]) + Math.abs(b - background[2]) > 30;
        visit(x, y, ink, r > 200 && g > 60 && g < 170 && b < 90);
      }
    };
    const counts = rects.map((rect) => {
      const count = { ink: 0, highlight: 0 };
      scan(rect, (x, y, ink, highlight) => { count.ink += ink; count.highlight += highlight; });
      return count;
    });
    let stray = 0;
    if (allowed) {
      scan(area, (x, y, ink) => {
        if (ink && !allowed.some((r) => x >= r[0] && x < r[2] && y >= r[1] && y < r[3])) ++stray;
      });
    }
    return { counts, stray };
  }, png, rects, allowed, area, BACKGROUND);
}

async function openAt(page, url) {
  await page.goto('about:blank');
  await page.goto(url);
  await page.waitForFunction('window.vekView && window.vekView.ready', { timeout: 30000 });
  // Two frames, so that the first rendered one has been presented.
  await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
}

const inflate = (r, by) => [r[0] - by, r[1] - by, r[2] + by, r[3] + by];

async function checkCapture(page, file, data, set, capture, screenshotPath) {
  await openAt(page, `file://${file}#capture=${capture.id}`);
  const viewport = await page.evaluate(() => {
    const r = document.querySelector('#viewport canvas').getBoundingClientRect();
    return { left: r.left, top: r.top, width: r.width, height: r.height };
  });
  const camera = captureCamera(data, set, capture);
  const rectFor = (family, id) => {
    const position = data.model.sets[set][family].findIndex((object) => object.id === id);
    const points = objectPoints(data, set, family, position);
    return points.length ? rectOf(project(camera, viewport, points), viewport) : null;
  };
  const shown = new Set(capture.annotations);
  const visible = [rectFor('captures', capture.id)];
  for (const family of ['ttrs', 'refFrames']) {
    for (const object of data.model.sets[set][family]) visible.push(rectFor(family, object.id));
  }
  for (const id of capture.cgs) visible.push(rectFor('cgs', id));
  for (const id of capture.views) visible.push(rectFor('views', id));
  const drawn = [];
  for (const id of shown) {
    const rect = rectFor('annotations', id);
    visible.push(rect);
    if (Array.isArray(rect)) drawn.push([id, rect]);
  }
  // Lines, points and antialiasing reach a few pixels past the projected bounds.
  const allowed = visible.filter(Array.isArray).map((rect) => inflate(rect, 4));
  const status = await page.$eval('#status', (node) => {
    const r = node.getBoundingClientRect();
    return [r.left, r.top, r.right, r.bottom].map(Math.round);
  });
  allowed.push(inflate(status, 2));
  const strayChecked = !visible.includes('everywhere');
  const { left, top, width, height } = viewport;

  const png = await page.screenshot({ encoding: 'base64' });
  if (screenshotPath) fs.writeFileSync(screenshotPath, Buffer.from(png, 'base64'));
  // Each extreme vertex is drawn, so a wholly visible annotation has ink along all four edges of
  // its rectangle.
  const bands = drawn.flatMap(([, r]) => (r.whole
    ? [[r[0] - 3, r[1] - 3, r[0] + 3, r[3] + 3], [r[2] - 3, r[1] - 3, r[2] + 3, r[3] + 3],
      [r[0] - 3, r[1] - 3, r[2] + 3, r[1] + 3], [r[0] - 3, r[3] - 3, r[2] + 3, r[3] + 3]]
    : [inflate(r, 2)]));
  const ink = await inkOf(page, png, bands, strayChecked ? allowed : null,
    [left, top, left + width, top + height].map(Math.round));
  let band = 0;
  for (const [id, rect] of drawn) {
    for (const side of rect.whole ? ['left', 'right', 'top', 'bottom'] : ['any']) {
      assert(ink.counts[band++].ink > 0,
        `${file} capture ${capture.id}: annotation ${id} is not drawn at the ${side} of ${JSON.stringify(rect)}`);
    }
  }
  assert.strictEqual(ink.stray, 0,
    `${file} capture ${capture.id}: ${ink.stray} pixels drawn where no object the capture shows projects`);
  return { drawn: drawn.length, strayChecked };
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
async function checkHighlight(page, file, data, set, capture) {
  const id = capture.annotations.find((k) => objectPoints(data, set, 'annotations',
    data.model.sets[set].annotations.findIndex((a) => a.id === k)).length);
  if (id === undefined) return;
  const position = data.model.sets[set].annotations.findIndex((a) => a.id === id);
  const annotation = data.model.sets[set].annotations[position];
  await page.click(`#lists li[data-set="${set}"][data-family="annotations"][data-index="${position}"]`);
  await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
  const details = await page.$eval('#details', (node) => node.textContent);
  for (const value of [annotation.name, annotation.attribute, annotation.value]) {
    if (value !== null && value !== undefined && value !== '') {
      assert(details.includes(String(value)), `${file}: the details of annotation ${id} lack ${value}: ${details}`);
    }
  }
  const viewport = await page.evaluate(() => {
    const r = document.querySelector('#viewport canvas').getBoundingClientRect();
    return { left: r.left, top: r.top, width: r.width, height: r.height };
  });
  const rect = rectOf(project(captureCamera(data, set, capture), viewport, objectPoints(data, set, 'annotations', position)), viewport);
  if (rect === 'everywhere' || rect === 'nowhere') return;
  const { counts: [ink] } = await inkOf(page, await page.screenshot({ encoding: 'base64' }), [inflate(rect, 2)]);
  assert(ink.highlight > 0, `${file}: annotation ${id} is not highlighted`);
}

async function main() {
  if (!fs.existsSync(CHROMIUM)) {
    console.log(`SKIP: no Chromium at ${CHROMIUM}; scripts/setup installs Debian's chromium`);
    process.exit(77);
  }
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
    let screenshot = process.env.VEK_VIEW_SCREENSHOT;
    for (const file of process.argv.slice(2).map((f) => path.resolve(f))) {
      const data = pageData(fs.readFileSync(file, 'utf8'));
      const totals = { captures: 0, drawn: 0, strayChecked: 0 };
      for (const [set, { captures }] of data.model.sets.entries()) {
        for (const capture of captures) {
          if (capture.id === null || !captureCamera(data, set, capture)) continue;
          const counts = await checkCapture(page, file, data, set, capture, screenshot);
          screenshot = null;
          totals.captures += 1;
          totals.drawn += counts.drawn;
          totals.strayChecked += counts.strayChecked;
          if (totals.captures === 1) await checkPanel(page, data);
          await checkHighlight(page, file, data, set, capture);
        }
      }
      assert(totals.captures > 0 && totals.drawn > 0 && totals.strayChecked > 0,
        `${file}: nothing was checked (${JSON.stringify(totals)})`);
      assert.deepStrictEqual(errors, [], `${file}: console errors`);
      console.log(`${path.basename(file)}: ${JSON.stringify(totals)}`);
    }
  } finally {
    await browser.close();
  }
}

main().catch((error) => {
  console.error(error.stack || String(error));
  process.exit(1);
});
