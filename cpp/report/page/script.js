// Draws the report from the JSON block of the page. Every text of the data reaches the page as a
// text node or an attribute's value, never as markup.
"use strict";

const data = JSON.parse(document.getElementById("data").textContent);
const ofBuild = data.kind === "build";

// ---- Elements.

// An element, its attributes (functions listen, null is left out) and its children.
function make(name, attributes, ...children) {
  const svg = ["svg", "g", "rect", "title", "text"].includes(name);
  const node = svg ? document.createElementNS("http://www.w3.org/2000/svg", name)
                   : document.createElement(name);
  for (const [key, value] of Object.entries(attributes || {})) {
    if (value === null || value === undefined) continue;
    if (typeof value === "function") node.addEventListener(key, value);
    else node.setAttribute(key, value);
  }
  node.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined));
  return node;
}
const code = (text) => make("code", {}, text);
const badge = (text, kind) => make("span", {class: `badge ${kind || ""}`}, text);

// ---- Numbers, with units.

const grouped = new Intl.NumberFormat("en-US");
const count = (n) => grouped.format(n);
const times = (n) => `${count(n)}×`;
const counted = (n, one, many) => `${count(n)} ${n === 1 ? one : many || one + "s"}`;

function scaled(n, units, step) {
  let unit = 0;
  while (n >= step && unit + 1 < units.length) {
    n /= step;
    ++unit;
  }
  const digits = unit === 0 || n >= 100 ? 0 : n >= 10 ? 1 : 2;
  return `${n.toFixed(digits)}\u00a0${units[unit]}`;
}
const duration = (ns) => scaled(ns, ["ns", "µs", "ms", "s"], 1000);
const size = (bytes) => scaled(bytes, ["B", "KiB", "MiB", "GiB"], 1024);
const share = (part, whole) => (whole > 0 ? part / whole : 0);
const percent = (part, whole) => `${(100 * share(part, whole)).toFixed(1)}\u00a0%`;

// ---- Places.

const fileName = (n) => (n >= 0 ? data.files[n].path : "");
const place = (at) => (at.file >= 0 ? `${fileName(at.file)}:${at.line}` : "");
const shortName = (path) => path.slice(path.lastIndexOf("/") + 1);

// The directory that all own files lie in; it is left out where a path is only to be recognised.
const ownDirectory = (() => {
  const parts = data.files.filter((file) => file.own).map((file) => file.path.split("/").slice(0, -1));
  let n = 0;
  while (parts.length > 0 && parts.every((p) => p.length > n && p[n] === parts[0][n])) ++n;
  return n > 0 ? parts[0].slice(0, n).join("/") + "/" : "";
})();

// A path whose name stands out, and which breaks at its slashes.
function pathText(path, behind) {
  const left = [ownDirectory, data.root || ""].find((directory) => path.startsWith(directory)) || "";
  const shown = path.slice(left.length);
  const parts = shown.split("/");
  const name = parts.pop();
  return make("span", {class: "path", title: path}, parts.map((part) => [`${part}/`, make("wbr")]),
              make("span", {class: "name"}, name + (behind || "")));
}

function macroLink(n) {
  const name = data.macros[n].name;
  return make("a", {href: `#macros/${encodeURIComponent(name)}`}, code(name));
}
function fileLink(n) {
  return n < 0 ? null : make("a", {href: `#includes/${encodeURIComponent(fileName(n))}`},
                             pathText(fileName(n)));
}
function placeLink(at) {
  return at.file < 0 ? null : make("span", {}, fileLink(at.file), `:${at.line}`);
}
const placeText = (at) => (at.file < 0 ? "" : pathText(fileName(at.file), `:${at.line}`));

function signature(macro) {
  return macro.params === null ? macro.name : `${macro.name}(${macro.params.join(", ")})`;
}
function argumentText(step) {
  return data.macros[step.macro].params === null ? "" : `(${step.args.join(", ")})`;
}
const stepText = (step) => data.macros[step.macro].name + argumentText(step);

// A call as it was read. What a replacement ends with may take its arguments from behind the call.
function callText(call) {
  const [first, ...others] = call.steps;
  return stepText(first) + others.filter((step) => step.depth === 1).map(argumentText).join("");
}

// ---- A table that sorts, filters and finds. Rows come to the page as far as somebody looks.

const rowsAtOnce = 50;

class Table {
  // columns: {title, value(row), cell(row), number, width, wide}; filters: {title, test(row)};
  // text(row) is what the search looks through, detail(row) what a row opens.
  constructor(options) {
    Object.assign(this, {filters: [], sort: null, falling: false, key: () => ""}, options);
    this.texts = this.rows.map((row) => this.text(row).toLowerCase());
    this.filter = null;
    this.element = make("div", {}, this.makeTools(), this.makeTable());
    this.more = make("button", {class: "chip more", type: "button", click: () => this.addRows()},
                     "Show more");
    this.element.append(this.more);
    new IntersectionObserver((seen) => {
      if (seen.some((entry) => entry.isIntersecting)) this.addRows();
    }, {rootMargin: "600px"}).observe(this.more);
    matchMedia("(max-width: 760px)").addEventListener("change", () => this.spanVisibleColumns());
    this.arrange();
    this.update();
  }

  makeTools() {
    this.search = make("input", {type: "search", placeholder: this.hint, "aria-label": this.hint,
                                 input: () => this.update()});
    this.chips = this.filters.map((filter) => {
      const n = this.rows.filter(filter.test).length;
      const chip = make("button", {class: "chip", type: "button", "aria-pressed": "false",
                                   title: filter.hint || null, click: () => this.toggle(filter)},
                        filter.title, make("span", {class: "count"}, count(n)));
      chip.filter = filter;
      return chip;
    });
    this.found = make("span", {class: "found", role: "status"});
    return make("div", {class: "tools"}, this.search, ...this.chips, this.found);
  }

  makeTable() {
    const heads = this.columns.map((column, n) => {
      const button = make("button", {type: "button", click: () => this.sortBy(n)}, column.title);
      return make("th", {class: this.cellClass(column), scope: "col", title: column.hint || null,
                         style: this.widths(column)}, button);
    });
    this.heads = heads;
    this.body = make("tbody", {keydown: (event) => this.onKey(event),
                               click: (event) => this.onClick(event)});
    return make("table", {}, make("thead", {}, make("tr", {}, heads)), this.body);
  }

  // A column's width, and that on a narrow page.
  widths(column) {
    return column.width || column.narrow
      ? `--width:${column.width || "auto"};--narrow:${column.narrow || column.width}` : null;
  }

  cellClass(column) {
    return `${column.number ? "num" : ""} ${column.wide ? "wide" : ""}`.trim() || null;
  }

  toggle(filter) {
    this.filter = this.filter === filter ? null : filter;
    this.update();
  }

  sortBy(n) {
    const column = this.columns[n];
    this.falling = this.sort === column ? !this.falling : Boolean(column.number);
    this.sort = column;
    this.arrange();
    this.update();
  }

  // Sorts all rows, so that a search has only to leave some out.
  arrange() {
    this.order = [...this.rows.keys()];
    if (this.sort) {
      const values = this.rows.map(this.sort.value);
      const sign = this.falling ? -1 : 1;
      this.order.sort((a, b) => (values[a] < values[b] ? -sign : values[a] > values[b] ? sign : 0));
    }
  }

  // Works out anew which rows are wanted and shows the first of them.
  update() {
    const wanted = this.search.value.trim().toLowerCase();
    this.shown = this.order.filter((n) => this.texts[n].includes(wanted) &&
                                          (!this.filter || this.filter.test(this.rows[n])))
      .map((n) => this.rows[n]);
    this.columns.forEach((column, n) => {
      const order = this.falling ? "descending" : "ascending";
      if (column === this.sort) this.heads[n].setAttribute("aria-sort", order);
      else this.heads[n].removeAttribute("aria-sort");
    });
    for (const chip of this.chips) {
      chip.setAttribute("aria-pressed", String(chip.filter === this.filter));
    }
    this.found.textContent = `${count(this.shown.length)} of ${count(this.rows.length)}`;
    this.body.replaceChildren();
    this.drawn = 0;
    this.addRows();
  }

  addRows() {
    const end = Math.min(this.drawn + rowsAtOnce, this.shown.length);
    const rows = [];
    for (; this.drawn < end; ++this.drawn) rows.push(this.makeRow(this.shown[this.drawn]));
    if (this.shown.length === 0) {
      rows.push(make("tr", {}, make("td", {class: "empty", colspan: this.columns.length},
                                    this.rows.length === 0 ? "There are none." : "None is like that.")));
    }
    if (this.shown.length > 0 || this.body.children.length === 0) this.body.append(...rows);
    this.more.hidden = this.drawn >= this.shown.length;
  }

  makeRow(row) {
    const cells = this.columns.map((column) =>
      make("td", {class: this.cellClass(column)}, column.cell ? column.cell(row)
                                                              : String(column.value(row))));
    const tr = make("tr", {class: "row", tabindex: "0",
                           "aria-expanded": this.detail ? "false" : null}, cells);
    tr.record = row;
    return tr;
  }

  open(tr, wanted) {
    const isOpen = tr.getAttribute("aria-expanded") === "true";
    if (!this.detail || isOpen === wanted) return;
    tr.setAttribute("aria-expanded", String(!isOpen));
    if (isOpen) tr.nextElementSibling.remove();
    else tr.after(make("tr", {class: "detail"},
                       make("td", {colspan: this.visibleColumns()}, this.detail(tr.record))));
  }

  // A narrow page leaves columns out, and a cell must not span more than there are.
  visibleColumns() {
    return this.heads.filter((head) => getComputedStyle(head).display !== "none").length;
  }

  spanVisibleColumns() {
    for (const td of this.body.querySelectorAll("tr.detail > td")) {
      td.setAttribute("colspan", this.visibleColumns());
    }
  }

  onClick(event) {
    const tr = event.target.closest("tr.row");
    if (tr && !event.target.closest("a, button") && !String(getSelection())) this.open(tr);
  }

  onKey(event) {
    const tr = event.target;
    if (!tr.matches("tr.row")) return;
    const rows = [...this.body.querySelectorAll("tr.row")];
    const steps = {ArrowDown: 1, ArrowUp: -1};
    if (event.key === "Enter" || event.key === " ") this.open(tr);
    else if (event.key in steps) {
      const next = rows[rows.indexOf(tr) + steps[event.key]];
      if (next) next.focus();
    } else return;
    event.preventDefault();
  }

  // Shows the row whose key is `key`, opened.
  show(key) {
    const row = this.rows.find((candidate) => this.key(candidate) === key);
    if (!row) return;
    if (!this.shown.includes(row)) {
      this.search.value = "";
      this.filter = null;
      this.update();
    }
    while (this.drawn <= this.shown.indexOf(row)) this.addRows();
    const tr = [...this.body.children].find((element) => element.record === row);
    this.open(tr, true);
    tr.scrollIntoView({block: "center"});
    tr.focus({preventScroll: true});
  }
}

function facts(...pairs) {
  return make("dl", {}, pairs.filter(([, what]) => what !== null && what !== "").map(([name, what]) =>
    [make("dt", {}, name), make("dd", {}, what)]));
}
function list(items, kind) {
  return make("ul", {class: `ranks ${kind || ""}`}, items.map((item) => make("li", {}, make("span", {}, item))));
}

// How often; never is said so that it does not catch the eye.
const timesCell = (n) => (n > 0 ? times(n) : make("span", {class: "soft"}, "–"));

// A number over a bar that shows how much of the most it is.
function barCell(text, part, most) {
  return [make("span", {class: "fill", style: `width:${(100 * share(part, most)).toFixed(1)}%`}),
          make("span", {}, text)];
}

// ---- Overview.

const isHeader = (file) => file.places.length > 0;

const ended = () => ofBuild
  ? `${counted(data.units.filter((unit) => !unit.complete).length, "unit")} ended early` : "ended early";

function tile(value, title, section) {
  const inside = [make("b", {}, value), make("span", {}, title)];
  return section ? make("a", {class: "tile", href: `#${section}`}, inside)
                 : make("div", {class: "tile"}, inside);
}

function phaseCard() {
  const entries = Object.entries(data.phase_ns);
  const bar = entries.map(([name, ns]) =>
    make("span", {class: name, style: `width:${100 * share(ns, data.total_ns)}%`,
                  title: `${name}: ${duration(ns)}`}));
  const legend = entries.map(([name, ns]) =>
    make("li", {}, make("i", {class: name}), `${name} `,
         make("span", {class: "soft"}, `${duration(ns)}, ${percent(ns, data.total_ns)}`)));
  return make("section", {class: "card"}, make("h2", {}, "Where the time went"),
              make("div", {class: "phases", role: "img", "aria-label": "Time by kind of work"}, bar),
              make("ul", {class: "legend"}, legend));
}

function ranking(title, rows, value, show, link) {
  const first = rows.filter((row) => value(row) > 0).sort((a, b) => value(b) - value(a)).slice(0, 8);
  const most = first.length > 0 ? value(first[0]) : 0;
  return make("section", {class: "card"}, make("h2", {}, title), make("ul", {class: "ranks"},
    first.length === 0 ? make("li", {class: "soft"}, "None.") : first.map((row) =>
      make("li", {}, make("span", {class: "fill", style: `width:${100 * share(value(row), most)}%`}),
           make("span", {}, link(row)), make("span", {class: "num"}, show(value(row)))))));
}

function notices() {
  const texts = [];
  if (!data.complete) {
    texts.push(ofBuild ? `${ended()}: what they would have done later is not here.`
                       : "The run ended early. This page shows what happened until then.");
  }
  const left = Object.entries(data.left_out || {}).filter(([, n]) => n > 0);
  if (left.length > 0) {
    texts.push("Too many to keep them all; not on this page: " +
               left.map(([what, n]) => `${count(n)} ${what}`).join(", ") + ".");
  }
  return texts.map((text) => make("p", {class: "notice", role: "note"}, text));
}

function overview() {
  const headers = data.files.filter(isHeader);
  const kinds = Object.entries(data.messages_by_kind).filter(([, n]) => n > 0);
  const messages = kinds.reduce((sum, [, n]) => sum + n, 0);
  const named = (kind, n) => (n === 1 || kind === "fatal" ? kind : `${kind}s`);
  const byKind = kinds.length === 1 ? named(...kinds[0])
    : kinds.map(([kind, n]) => `${count(n)} ${named(kind, n)}`).join(", ");
  const own = data.macros.filter(isDefined);
  const candidates = data.files.filter((file) => file.candidate);
  return make("div", {}, notices(),
    make("div", {class: "tiles"},
      ofBuild ? tile(count(data.units.length), "units", "units") : null,
      tile(duration(data.total_ns), "time"),
      tile(size(data.bytes_read), "read"),
      tile(size(data.bytes_written), "written"),
      tile(count(headers.length), "headers", "includes"),
      tile(count(own.length), "macros", "macros"),
      tile(count(data.expansions), "expansions", "calls"),
      tile(count(messages), byKind || "messages", "messages")),
    phaseCard(),
    make("div", {class: "two"},
      ranking("Headers that cost most", headers, (file) => file.self_ns, duration,
              (file) => fileLink(data.files.indexOf(file))),
      ranking("Macros expanded most", own, (macro) => macro.expanded, times,
              (macro) => macroLink(data.macros.indexOf(macro)))),
    candidates.length > 0 ? make("section", {class: "card", style: "margin-top:1rem"},
      make("h2", {}, "Headers that may not be needed"),
      make("p", {class: "soft"}, "No text came from them and none of their macros was used, nor from " +
           "what they include. Look before you drop one: types and prototypes are text, and other " +
           "settings may use it."),
      list(candidates.slice(0, 20).map((file) => fileLink(data.files.indexOf(file))))) : null,
    ofBuild ? null : make("section", {class: "card", style: "margin-top:1rem"},
      make("h2", {}, "Command line"),
      make("code", {class: "command"}, data.command.join(" ")),
      facts(["directory", code(data.directory)], ["exit status", String(data.status)],
            ["program", `cpp ${data.program}`])));
}

// ---- Includes.

function headerMarks(file) {
  return [file.candidate ? badge("may be dropped", "warn") : null,
          file.own ? badge("own") : null];
}

function headerDetail(file) {
  return make("div", {},
    facts(["path", code(file.path)],
          ["units", file.units ? count(file.units) : null],
          ["time", `${duration(file.self_ns)} alone, ${duration(file.total_ns)} with what it includes`],
          ["read", `${times(file.reads)}, ${size(file.bytes)} and ${counted(file.lines, "line")} in all; ` +
                   `spared ${times(file.spared)} by its guard`],
          ["output", `${size(file.self_output)} while it was read, ${size(file.total_output)} with what it includes`],
          ["use", `${file.text ? "text came from it" : "no text"}, ` +
                  `${file.macro_used ? "its macros are used elsewhere" : "none of its macros is used elsewhere"}`]),
    file.places.length === 0 ? null : make("h2", {}, "Included from"),
    list(file.places.slice(0, 200).map((at) => [placeLink(at), make("span", {class: "soft"},
      ` read ${times(at.reads)}${at.spared > 0 ? `, spared ${times(at.spared)}` : ""}`)])));
}

function headerTable() {
  const most = (value) => Math.max(1, ...data.files.map(value));
  const mostSelf = most((file) => file.self_ns);
  const mostTotal = most((file) => file.total_ns);
  const columns = [
    {title: "Header", narrow: "50%", value: (file) => file.path.toLowerCase(),
     cell: (file) => [pathText(file.path), " ", ...headerMarks(file)]},
    {title: "Read", number: true, width: "4.6rem", hint: "times", value: (file) => file.reads,
     cell: (file) => times(file.reads)},
    {title: "Spared", number: true, width: "5.2rem", wide: true, hint: "times, by its include guard",
     value: (file) => file.spared, cell: (file) => timesCell(file.spared)},
    {title: "Size", number: true, width: "6rem", wide: true, hint: "bytes read, all times together",
     value: (file) => file.bytes, cell: (file) => size(file.bytes)},
    {title: "Lines", number: true, width: "5.4rem", wide: true, value: (file) => file.lines,
     cell: (file) => count(file.lines)},
    {title: "Alone", number: true, width: "6.4rem", hint: "time in the header itself",
     value: (file) => file.self_ns, cell: (file) => barCell(duration(file.self_ns), file.self_ns, mostSelf)},
    {title: "With included", number: true, width: "6.8rem", wide: true,
     hint: "time with what it includes", value: (file) => file.total_ns,
     cell: (file) => barCell(duration(file.total_ns), file.total_ns, mostTotal)},
    {title: "Output", number: true, width: "6rem", wide: true,
     hint: "written while it or what it includes was read", value: (file) => file.total_output,
     cell: (file) => size(file.total_output)},
  ];
  const rows = ofBuild ? data.files : data.files.slice();
  return new Table({rows, columns, detail: headerDetail, hint: "Find a header",
    text: (file) => file.path, key: (file) => file.path,
    sort: columns[5], falling: true,
    filters: [
      {title: "may be dropped", test: (file) => file.candidate},
      {title: "own", test: (file) => file.own, hint: "the input, and what its own files include in quotes"},
      {title: "read again", test: (file) => file.reads > (file.units || 1)},
      {title: "from outside", test: (file) => !file.own}]});
}

// Children of each inclusion, in their order.
function inclusionChildren() {
  const children = data.inclusions.map(() => []);
  data.inclusions.forEach((node, n) => {
    if (node.parent >= 0) children[node.parent].push(n);
  });
  return children;
}

class Icicle {
  constructor(children) {
    this.children = children;
    this.root = 0;
    this.measure = {name: "time", value: (node) => node.total_ns, show: duration};
    this.crumbs = make("p", {class: "crumbs"});
    this.svg = make("svg", {role: "group", "aria-label": "Includes by cost"});
    this.element = make("div", {class: "icicle"}, this.crumbs, this.svg);
    new ResizeObserver(() => this.draw()).observe(this.element);
  }

  name(n) {
    return fileName(data.inclusions[n].file);
  }

  zoom(n) {
    this.root = n;
    this.draw();
  }

  draw() {
    const width = this.svg.clientWidth;
    if (width === 0 || data.inclusions.length === 0) return;
    const height = 26;
    const nodes = [];
    let deepest = 0;
    const add = (n, x, w, depth) => {
      deepest = Math.max(deepest, depth);
      nodes.push(this.makeNode(n, x, w, depth * height, height));
      const whole = this.measure.value(data.inclusions[n]);
      for (const child of this.children[n]) {
        const part = w * share(this.measure.value(data.inclusions[child]), whole);
        if (part >= 1.5) add(child, x, part, depth + 1);
        x += part;
      }
    };
    add(this.root, 0, width, 0);
    this.svg.setAttribute("height", String((deepest + 1) * height));
    this.svg.replaceChildren(...nodes);
    this.drawCrumbs();
  }

  makeNode(n, x, width, y, height) {
    const node = data.inclusions[n];
    const alone = share(node.self_ns, node.total_ns);
    const shape = node.spared ? "spared" : `shape${Math.min(5, Math.floor(alone * 6))}`;
    const name = shortName(this.name(n));
    const room = Math.floor((width - 8) / 6.6);
    const label = room < 3 ? "" : name.length <= room ? name : `${name.slice(0, room - 1)}…`;
    const zoom = () => this.zoom(n);
    const title = `${this.name(n)}\n${duration(node.total_ns)} with what it includes, ` +
                  `${duration(node.self_ns)} alone\n${size(node.output)} of output`;
    const g = make("g", {tabindex: "0", role: "button", "aria-label": title, click: zoom,
                         keydown: (event) => {
                           if (event.key !== "Enter" && event.key !== " ") return;
                           event.preventDefault();
                           zoom();
                           this.svg.querySelector("g").focus();
                         }},
      make("title", {}, title),
      make("rect", {x, y, width, height, class: shape}));
    if (label) g.append(make("text", {x: x + 5, y: y + 17}, label));
    return g;
  }

  drawCrumbs() {
    const path = [];
    for (let n = this.root; n >= 0; n = data.inclusions[n].parent) path.unshift(n);
    const links = path.map((n, at) => [at > 0 ? " › " : "",
      at + 1 === path.length ? make("b", {}, shortName(this.name(n)))
        : make("a", {href: "#includes", click: (event) => {
            event.preventDefault();
            this.zoom(n);
          }}, shortName(this.name(n)))]);
    const root = data.inclusions[this.root];
    this.crumbs.replaceChildren(...links.flat(), " ", make("span", {class: "soft"},
      this.measure.show(this.measure.value(root))));
  }
}

const branchesAtOnce = 100;

// The tree in the order it happened; a branch is made when it is opened, a wide one bit by bit.
function includeTree(children) {
  const grow = (inside, rest) => {
    inside.append(...rest.slice(0, branchesAtOnce).map(item));
    const left = rest.slice(branchesAtOnce);
    if (left.length === 0) return;
    const more = make("button", {class: "chip more", type: "button", click: () => {
      const next = more.parentElement;
      grow(inside, left);
      next.nextElementSibling.querySelector("a, summary").focus();
      next.remove();
    }}, `Show more of ${count(left.length)}`);
    inside.append(make("li", {}, more));
  };
  const item = (n) => {
    const node = data.inclusions[n];
    const file = data.files[node.file];
    const cost = (text, wide) => make("span", {class: wide ? "num wide" : "num"}, text);
    const line = [make("span", {class: "label"}, fileLink(node.file), node.line > 0
                       ? make("span", {class: "soft"}, ` line ${node.line} `) : " ",
                       node.spared ? badge("spared") : null,
                       file.candidate ? badge("may be dropped", "warn") : null),
                  node.spared ? null : [cost(duration(node.self_ns), true), cost(duration(node.total_ns)),
                                        cost(size(node.output), true)]];
    if (children[n].length === 0) return make("li", {}, make("span", {class: "leaf"}, line));
    const inside = make("ul", {});
    const details = make("details", {toggle: () => {
      if (inside.children.length === 0) grow(inside, children[n]);
    }}, make("summary", {}, line), inside);
    if (n === 0) details.open = true;
    return make("li", {}, details);
  };
  return [make("p", {class: "leaf heads soft"}, make("span", {class: "label"}, "Header"),
               ["alone", "with included", "output"].map((title, n) =>
                 make("span", {class: n === 1 ? "num" : "num wide"}, title))),
          make("ul", {class: "tree"}, data.inclusions.length > 0 ? item(0) : null)];
}

function includesByTree() {
  const children = inclusionChildren();
  const icicle = new Icicle(children);
  const measures = [icicle.measure,
                    {name: "output", value: (node) => node.output, show: size}];
  const chips = measures.map((measure) => make("button", {class: "chip", type: "button",
    "aria-pressed": String(measure === icicle.measure), click: () => {
      icicle.measure = measure;
      chips.forEach((chip, n) => chip.setAttribute("aria-pressed", String(measures[n] === measure)));
      icicle.draw();
    }}, `by ${measure.name}`));
  return [
    make("div", {class: "tools"}, chips, make("span", {class: "found"},
      "Width: cost with what is included. Colour: from blue, spent in what it includes, to red, " +
      "spent in the header itself. A click zooms.")),
    icicle.element,
    make("section", {class: "card", style: "margin-top:1rem"},
         make("h2", {}, "In the order it happened"), includeTree(children))];
}

function includes(table) {
  return make("div", {}, ofBuild ? null : includesByTree(),
              make("h2", {}, "Headers by cost"), table.element);
}

// ---- Macros.

const isDefined = (macro) => macro.origin !== "none";
const isUsed = (macro) => macro.expanded + macro.if + macro.ifdef > 0;

function macroBadges(macro) {
  return [macro.origin === "start-up" || macro.origin === "command line" ? badge(macro.origin) : null,
          macro.origin === "none" ? badge("never defined", "warn") : null,
          macro.redefined > 0 ? badge("redefined", "bad") : null,
          macro.undefined > 0 ? badge("undefined", "warn") : null,
          macro.variants > 1 ? badge(`${macro.variants} definitions`, "bad") : null,
          isDefined(macro) && !isUsed(macro) ? badge("unused") : null];
}

function definition(macro) {
  if (macro.origin === "none") return "";
  return macro.body === null ? "(the place where it is used)" : macro.body;
}

function macroDetail(macro) {
  const number = data.macros.indexOf(macro);
  const calls = data.calls.filter((call) => call.steps.some((step) => step.macro === number));
  return make("div", {},
    facts(...(macro.origin === "none" ? [] : [
            ["definition", code(`#define ${signature(macro)} ${definition(macro)}`)],
            ["at", placeLink(macro)],
            ["units", macro.units ? `defined in ${count(macro.units)}, used in ${count(macro.used_in)}` : null]]),
          ["used", `expanded ${times(macro.expanded)}, tested ${times(macro.if)} by #if and ` +
                   `${times(macro.ifdef)} by #ifdef`],
          ["same again", macro.same_again > 0 ? `defined ${times(macro.same_again)} more as it was` : null]),
    macro.changes.length > 1 || macro.origin !== "file" && macro.changes.length > 0
      ? [make("h2", {}, "Changes"), list(macro.changes.map((change) => [`${change.what} `, placeLink(change)]))]
      : null,
    calls.length > 0
      ? [make("h2", {}, "Calls with it"), list(calls.slice(0, 20).map((call) =>
          make("a", {href: `#calls/${data.calls.indexOf(call)}`}, code(callText(call)))), "flow")]
      : null);
}

function macroTable() {
  const most = Math.max(1, ...data.macros.map((macro) => macro.expanded));
  const columns = [
    {title: "Macro", width: "25%", narrow: "42%", value: (macro) => macro.name.toLowerCase(),
     cell: (macro) => [code(signature(macro)), " ", ...macroBadges(macro)]},
    {title: "Definition", value: (macro) => definition(macro),
     cell: (macro) => make("div", {class: "clip"}, code(definition(macro)))},
    {title: "Place", width: "19%", wide: true, value: (macro) => place(macro), cell: (macro) =>
      placeText(macro)},
    {title: "Expanded", number: true, width: "5.8rem", value: (macro) => macro.expanded,
     cell: (macro) => barCell(timesCell(macro.expanded), macro.expanded, most)},
    {title: "#if", number: true, width: "4.4rem", wide: true, value: (macro) => macro.if,
     cell: (macro) => timesCell(macro.if)},
    {title: "#ifdef", number: true, width: "4.8rem", wide: true, value: (macro) => macro.ifdef,
     cell: (macro) => timesCell(macro.ifdef)},
  ];
  const from = (origin) => (macro) => macro.origin === origin;
  return new Table({rows: data.macros, columns, detail: macroDetail, hint: "Find a macro by part of its name",
    text: (macro) => macro.name, key: (macro) => macro.name, sort: columns[3], falling: true,
    filters: [
      {title: "unused", hint: "neither expanded nor tested",
       test: (macro) => isDefined(macro) && !isUsed(macro)},
      {title: "redefined", hint: "or undefined",
       test: (macro) => macro.redefined + macro.undefined > 0 || macro.variants > 1},
      {title: "start-up", test: from("start-up")},
      {title: "command line", test: from("command line")},
      {title: "never defined", hint: "tested, but never defined", test: from("none")}]});
}

// ---- Calls.

function stepItem(step, first) {
  const macro = data.macros[step.macro];
  const args = (macro.params || []).map((name, n) => `${name} = ${step.args[n] || ""}`);
  return make("li", {style: `--depth:${step.depth - 1}`},
    make("span", {}, make("a", {href: `#macros/${encodeURIComponent(macro.name)}`}, code(stepText(step))),
         make("span", {class: "soft"}, first ? "" : " rescanned")),
    args.length > 0 ? make("span", {class: "args mono"},
                           args.map((arg) => make("span", {}, arg))) : null,
    make("span", {class: "becomes"}, make("span", {class: "soft"}, "→ "), code(step.text || "(nothing)")));
}

function callCard(call, n) {
  const steps = make("ol", {class: "steps"});
  const result = call.result === null ? null : call.result.trim();
  const card = make("details", {class: "call", id: `call-${n}`, toggle: () => {
    if (!card.open || steps.children.length > 0) return;
    steps.append(...call.steps.map((step, at) => stepItem(step, at === 0)));
    if (call.cut) steps.append(make("li", {class: "soft"}, "further steps are left out"));
    if (result !== null) {
      steps.append(make("li", {class: "result"}, make("span", {class: "soft"}, "result "),
                        code(result || "(nothing)")));
    }
  }},
    make("summary", {}, code(callText(call)),
      make("span", {class: "place soft"}, `${times(call.count)}, `, placeText(call)),
      make("span", {class: "to"}, "→ ", code(result === null ? "(not written as text)" : result || "(nothing)"))),
    steps);
  return card;
}

function calls() {
  const cards = data.calls.map(callCard);
  const texts = data.calls.map((call) => [callText(call), call.result || "",
    ...call.steps.map((step) => data.macros[step.macro].name)].join("\n").toLowerCase());
  const found = make("span", {class: "found", role: "status"});
  const search = make("input", {type: "search", placeholder: "Find a call", "aria-label": "Find a call"});
  const update = () => {
    const wanted = search.value.trim().toLowerCase();
    let n = 0;
    cards.forEach((card, at) => {
      card.hidden = !texts[at].includes(wanted);
      if (!card.hidden) ++n;
    });
    found.textContent = `${count(n)} of ${count(cards.length)}`;
  };
  search.addEventListener("input", update);
  update();
  return make("div", {}, make("div", {class: "tools"}, search, found),
    make("p", {class: "soft"}, "Different calls, those of the input itself first, then the most " +
         "frequent. Open one to see it step by step."),
    cards.length > 0 ? cards : make("p", {class: "empty"}, "No call was worth a look."));
}

// ---- Conditions.

const stateKinds = {"taken": "good", "not taken": "bad", "not looked at": "", "undecided": "warn"};
const stateSigns = {"taken": "✓ taken", "not taken": "✗ not taken", "not looked at": "not looked at",
                    "undecided": "undecided"};

function conditionCell(condition) {
  const differs = condition.evaluated !== "" && condition.evaluated !== condition.text;
  return make("div", {style: `padding-left:${Math.min(condition.depth, 12)}rem`.replace("rem", "em")},
    code(`#${condition.directive} ${condition.text}`),
    differs ? make("div", {class: "soft"}, "→ ", code(condition.evaluated)) : null);
}

function conditionDetail(condition) {
  return make("div", {},
    facts(["as written", code(`#${condition.directive} ${condition.text}`)],
          ["came to", condition.evaluated === "" ? null : code(condition.evaluated)],
          ["at", placeLink(condition)]),
    condition.names.length === 0 ? null : facts(...condition.names.map((name) =>
      [name.defined ? `defined ${name.text}` : name.text, code(name.value)])));
}

function conditionTable() {
  const columns = [
    {title: "Place", width: "28%", value: (c) => c.file * 1e7 + c.line,
     cell: placeText},
    {title: "Condition", value: (c) => c.text, cell: conditionCell},
    {title: "Came out", width: "8.6rem", narrow: "6.6rem", value: (c) => c.state,
     cell: (c) => badge(stateSigns[c.state], stateKinds[c.state])},
  ];
  const is = (state) => (c) => c.state === state;
  return new Table({rows: data.conditions, columns, detail: conditionDetail, hint: "Find in conditions",
    text: (c) => `${c.directive} ${c.text} ${fileName(c.file)}`,
    filters: Object.keys(stateKinds).map((state) => ({title: state, test: is(state)}))});
}

// ---- Messages.

const messageKinds = {fatal: "bad", error: "bad", warning: "warn", message: ""};

// The entry of a message in the manual. A page that comes from elsewhere must not lead to files.
function manualLink(message) {
  const text = `(${message.number})`;
  if (message.number === 0) return "";
  if (!data.manual || location.protocol !== "file:") {
    return make("span", {title: `docs/messages.md tells about message ${message.number}`}, text);
  }
  const path = data.manual.split("/").map(encodeURIComponent).join("/").replace(/^([A-Za-z])%3A/, "/$1:");
  return make("a", {href: `file://${path}#${message.number}`}, text);
}

function messageTable() {
  const columns = [
    {title: "Kind", width: "6.4rem", narrow: "4.7rem", value: (m) => m.kind, cell: (m) => badge(m.kind, messageKinds[m.kind])},
    {title: "Number", number: true, width: "5.4rem", narrow: "4.6rem", value: (m) => m.number, cell: manualLink},
    {title: "Place", width: "30%", value: (m) => m.file,
     cell: (m) => (m.file === "" ? "" : pathText(m.file, `:${m.line}`))},
    {title: "Message", value: (m) => m.text},
  ];
  const kinds = [...new Set(data.messages.map((m) => m.kind))];
  return new Table({rows: data.messages, columns, hint: "Find in messages",
    text: (m) => `${m.number} ${m.file} ${m.text}`,
    filters: kinds.map((kind) => ({title: kind, test: (m) => m.kind === kind}))});
}

// ---- Units of a build.

function unitTable() {
  const most = Math.max(1, ...data.units.map((unit) => unit.total_ns));
  const columns = [
    {title: "Unit", value: (unit) => unit.input.toLowerCase(), cell: (unit) =>
      [pathText(unit.input), " ", unit.complete ? null : badge("ended early", "bad"),
       unit.status === 0 ? null : badge(`status ${unit.status}`, "bad")]},
    {title: "Time", number: true, width: "7rem", value: (unit) => unit.total_ns,
     cell: (unit) => barCell(duration(unit.total_ns), unit.total_ns, most)},
    {title: "Read", number: true, width: "6rem", value: (unit) => unit.bytes_read,
     cell: (unit) => size(unit.bytes_read)},
    {title: "Written", number: true, width: "6rem", wide: true, value: (unit) => unit.bytes_written,
     cell: (unit) => size(unit.bytes_written)},
    {title: "Headers", number: true, width: "5.6rem", wide: true, value: (unit) => unit.headers,
     cell: (unit) => count(unit.headers)},
    {title: "Expansions", number: true, width: "7rem", wide: true, value: (unit) => unit.expansions,
     cell: (unit) => count(unit.expansions)},
  ];
  return new Table({rows: data.units, columns, hint: "Find a unit", text: (unit) => unit.input,
    sort: columns[1], falling: true,
    detail: (unit) => facts(["command", code(unit.command.join(" "))], ["directory", code(unit.directory)])});
}

// ---- The page.

// Sections are made when they are first looked at; `show` goes to one record of theirs.
function tableSection(title, n, makeTable, around) {
  let table = null;
  return {title, n, make: () => {
    table = makeTable();
    return around ? around(table) : make("div", {}, table.element);
  }, show: (key) => table.show(key)};
}

const sections = {
  overview: {title: "Overview", make: overview},
  ...(ofBuild ? {units: tableSection("Units", data.units.length, unitTable)} : {}),
  includes: tableSection("Includes", data.files.filter(isHeader).length, headerTable, includes),
  macros: tableSection("Macros", data.macros.filter(isDefined).length, macroTable),
  calls: {title: "Calls", n: data.calls.length, make: calls, show: (key) => {
    const card = document.getElementById(`call-${key}`);
    if (!card) return;
    card.hidden = false;
    card.open = true;
    card.scrollIntoView({block: "start"});
    card.firstElementChild.focus({preventScroll: true});
  }},
  ...(ofBuild ? {} : {conditions: tableSection("Conditions", data.conditions.length, conditionTable)}),
  messages: tableSection("Messages", data.messages.length, messageTable),
};

const nav = document.getElementById("nav");
const main = document.getElementById("main");

function decoded(text) {
  try {
    return decodeURIComponent(text);
  } catch {
    return text;
  }
}

function goToHash() {
  const [, name, key] = location.hash.match(/^#([a-z]*)(?:\/(.*))?$/) || [];
  const id = name in sections ? name : "overview";
  const section = sections[id];
  if (!section.element) section.element = section.make();
  if (main.firstElementChild !== section.element) {
    main.replaceChildren(section.element);
    scrollTo(0, 0);
  }
  for (const link of nav.children) {
    if (link.hash === `#${id}`) link.setAttribute("aria-current", "page");
    else link.removeAttribute("aria-current");
  }
  const current = nav.querySelector("[aria-current]");
  nav.scrollLeft = current.offsetLeft - (nav.clientWidth - current.offsetWidth) / 2;
  if (key !== undefined && section.show) section.show(decoded(key));
}

// Digits go to sections, "/" to the search.
function onKey(event) {
  if (event.target.matches("input") || event.ctrlKey || event.altKey || event.metaKey) return;
  const search = main.querySelector("input[type=search]");
  const id = Object.keys(sections)[Number(event.key) - 1];
  if (event.key === "/" && search) {
    event.preventDefault();
    search.focus();
  } else if (/^[1-9]$/.test(event.key) && id) {
    location.hash = id;
  }
}

function start() {
  const title = ofBuild ? `Build of ${counted(data.units.length, "unit")}` : data.input || "standard input";
  document.title = `${shortName(title)} – cpp report`;
  document.getElementById("title").textContent = title;
  const when = new Date(data.started);
  document.getElementById("subtitle").textContent = [
    isNaN(when) ? data.started : when.toLocaleString(), duration(data.total_ns),
    data.complete ? null : ended(), data.status === 0 ? null : `exit status ${data.status}`,
  ].filter(Boolean).join(" · ");
  nav.append(...Object.entries(sections).map(([id, section]) =>
    make("a", {href: `#${id}`}, section.title,
         section.n === undefined ? null : make("span", {class: "count"}, count(section.n)))));
  addEventListener("hashchange", goToHash);
  addEventListener("keydown", onKey);
  goToHash();
}

start();
