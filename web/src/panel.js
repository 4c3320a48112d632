// The side panel: every set with its captures, views and annotations by name, a name filter, and
// the values and links of the chosen object.

const LISTED = [
  ['captures', 'Captures', 'capture'],
  ['views', 'Views', 'view'],
  ['annotations', 'Annotations', 'annotation'],
];
const SINGULAR = {
  annotations: 'annotation', ttrs: 'TTRS', views: 'view', refFrames: 'reference frame',
  cgs: 'construction geometry', captures: 'capture',
};

export function labelOf(object, family) {
  if (object.name) return object.name;
  return `${SINGULAR[family]} ${object.id ?? '(no id)'}`;
}

function element(tag, properties = {}, children = []) {
  const node = Object.assign(document.createElement(tag), properties);
  for (const child of children) node.append(child);
  return node;
}

function vector(value) {
  return value ? value.map((x) => +x.toPrecision(6)).join(' ') : '';
}

export class Panel {
  // `index` answers index.find(set, family, id) -> position or -1; `choose(set, family, position)`
  // is called when a name or a link is chosen.
  constructor(model, index, choose) {
    this.model = model;
    this.index = index;
    this.items = new Map();
    this.chosen = null;
    const lists = document.getElementById('lists');
    model.sets.forEach((set, s) => {
      lists.append(element('h2', { textContent: set.name || `Set ${s + 1}` }));
      for (const [family, title] of LISTED) {
        const objects = set[family] || [];
        if (objects.length === 0) continue;
        const list = element('ul');
        objects.forEach((object, position) => {
          const item = element('li', { textContent: labelOf(object, family), title: `id ${object.id}` });
          Object.assign(item.dataset, { set: s, family, index: position });
          this.items.set(`${s}/${family}/${position}`, item);
          list.append(item);
        });
        lists.append(element('details', { open: family !== 'annotations' || objects.length <= 200 }, [
          element('summary', { textContent: `${title} (${objects.length})` }), list]));
      }
    });
    const fromTarget = (event) => {
      const source = event.target.closest('[data-family]');
      if (source) choose(+source.dataset.set, source.dataset.family, +source.dataset.index);
    };
    lists.addEventListener('click', fromTarget);
    document.getElementById('details').addEventListener('click', fromTarget);
    document.getElementById('filter').addEventListener('input', (event) => {
      const wanted = event.target.value.trim().toLowerCase();
      for (const item of this.items.values()) {
        item.classList.toggle('hidden', wanted !== '' && !item.textContent.toLowerCase().includes(wanted));
      }
    });
  }

  // Marks the chosen item and shows the object's values; null clears both.
  show(set, family, position) {
    if (this.chosen) this.chosen.classList.remove('chosen');
    const details = document.getElementById('details');
    details.replaceChildren();
    this.chosen = null;
    if (set === null) return;
    this.chosen = this.items.get(`${set}/${family}/${position}`) || null;
    if (this.chosen) {
      this.chosen.classList.add('chosen');
      this.chosen.scrollIntoView({ block: 'nearest' });
    }
    const object = this.model.sets[set][family][position];
    const rows = [['Id', object.id], ['Type', object.type]];
    const link = (toFamily, id) => {
      const found = this.index.find(set, toFamily, id);
      if (found < 0) return `${id} (not in the set)`;
      return this.anchor(set, toFamily, found, labelOf(this.model.sets[set][toFamily][found], toFamily));
    };
    const links = (toFamily, ids) => (ids || []).map((id) => link(toFamily, id));
    const namedBy = (fromFamily, member) => this.model.sets[set][fromFamily]
      .map((other, k) => ((other[member] || []).includes(object.id) ? this.anchor(set, fromFamily, k, labelOf(other, fromFamily)) : null))
      .filter(Boolean);
    if (family === 'annotations') {
      rows.push(['Value', object.value], ['Default', object.default ? 'yes' : 'no'],
        ['Attribute', object.attribute], ['Reference frame', object.reference ? [link('refFrames', object.reference)] : null],
        ['TTRS', links('ttrs', object.ttrs)], ['Views', links('views', object.views)],
        ['Order group', links('annotations', object.orderGroup)],
        ['Shown in captures', namedBy('captures', 'annotations')], ['Shown in views', namedBy('views', 'annotations')]);
    } else if (family === 'captures') {
      const camera = object.camera || {};
      rows.push(['Active view', object.activeView ? [link('views', object.activeView)] : null],
        ['Clipping', object.clippingPlane], ['Camera position', vector(camera.position)],
        ['Direction', vector(camera.direction)], ['Zenith', vector(camera.zenith)], ['Target', vector(camera.target)],
        ['Annotations', links('annotations', object.annotations)], ['Views', links('views', object.views)],
        ['Construction geometry', links('cgs', object.cgs)]);
    } else if (family === 'views') {
      rows.push(['Origin', vector(object.origin)], ['Normal', vector(object.normal)], ['Direction', vector(object.direction)],
        ['Annotations', links('annotations', object.annotations)], ['Captures', links('captures', object.captures)]);
    } else {
      rows.push(['Attribute', object.attribute], ['TTRS', links('ttrs', object.ttrs)],
        ['Datums', links('annotations', object.datums)]);
    }
    const table = element('table');
    for (const [name, value] of rows) {
      if (value === null || value === undefined || value === '' || (Array.isArray(value) && value.length === 0)) continue;
      const cell = element('td');
      if (Array.isArray(value)) value.forEach((part, k) => cell.append(...(k ? [', ', part] : [part])));
      else cell.textContent = String(value);
      table.append(element('tr', {}, [element('th', { textContent: name }), cell]));
    }
    details.append(element('strong', { textContent: labelOf(object, family) }), table);
  }

  anchor(set, family, position, text) {
    const anchor = element('a', { textContent: text });
    Object.assign(anchor.dataset, { set, family, index: position });
    return anchor;
  }
}
