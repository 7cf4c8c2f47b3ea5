#include "desk/show/html_assets.h"

namespace desk {

namespace {

constexpr std::string_view style = R"css(
:root {
  color-scheme: light dark;
  --page: #fff; --panel: #f5f7f9; --line: #d3d9df; --text: #1b2128; --soft: #55606b;
  --accent: #0b57a4; --hit: #fff;
  --e: #8f1d14; --e-back: #fde4e1; --w: #694700; --w-back: #fdeec2;
  --q: #47397f; --q-back: #e8e5f6; --k: #19683a; --k-back: #e2f3e7;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #14181c; --panel: #1d2227; --line: #3a424a; --text: #e6e9ec; --soft: #a5afb9;
    --accent: #8ec5ff; --hit: #14181c;
    --e: #ffb9b0; --e-back: #4c1a15; --w: #ffdc86; --w-back: #3f2f05;
    --q: #d1c9ff; --q-back: #2e2952; --k: #8fdcab; --k-back: #153321;
  }
}
* { box-sizing: border-box; }
html { scroll-padding-top: 1rem; }
body {
  margin: 0 auto; max-width: 90rem; padding: 2rem clamp(.75rem, 3vw, 2.5rem) 4rem;
  background: var(--page); color: var(--text);
  font: 1rem/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", sans-serif;
  font-variant-numeric: tabular-nums; overflow-wrap: anywhere;
}
h1 { font-size: 1.6rem; line-height: 1.25; margin: 0 0 .25rem; }
h2 { font-size: 1.2rem; margin: 3rem 0 .75rem; }
h3 { font-size: 1rem; margin: 0; }
h4 { font-size: .95rem; margin: 1.25rem 0 .35rem; }
p, ul, dl { margin: .35rem 0; }
ul { padding-left: 1.25rem; }
a { color: var(--accent); }
:focus-visible { outline: 3px solid var(--accent); outline-offset: 2px; }
code, pre, .raw { font: .875rem/1.5 ui-monospace, "DejaVu Sans Mono", Menlo, Consolas, monospace; }
code, pre, td, th, bdi { unicode-bidi: isolate; }
pre { margin: .25rem 0; white-space: pre-wrap; }
.soft { color: var(--soft); }
.e { color: var(--e); background: var(--e-back); }
.w { color: var(--w); background: var(--w-back); }
.q { color: var(--q); background: var(--q-back); }
.k { color: var(--k); background: var(--k-back); }
.verdict {
  display: flex; gap: .75rem; align-items: baseline; margin: 1rem 0; padding: .75rem 1rem;
  border-radius: .4rem; font-size: 1.15rem; font-weight: 600;
}
.facts { display: grid; grid-template-columns: max-content 1fr; gap: .15rem 1.25rem; }
.facts dt { color: var(--soft); }
.facts dd { margin: 0; }
nav ul { display: flex; flex-wrap: wrap; gap: .25rem 1.25rem; list-style: none; padding: 0; }
.search { margin: 1.5rem 0 0; display: flex; flex-wrap: wrap; gap: .5rem 1rem; align-items: center; }
.search[hidden] { display: none; }
.search input {
  flex: 1 1 16rem; max-width: 30rem; min-width: 0; padding: .5rem .75rem; font: inherit;
  color: inherit; background: var(--page); border: 1px solid var(--soft); border-radius: .4rem;
}
.chip {
  display: inline-block; padding: 0 .5rem; border-radius: 1rem; font-size: .85rem;
  font-weight: 600; white-space: nowrap;
}
.spoken { position: absolute; width: 1px; height: 1px; overflow: hidden; clip-path: inset(50%); white-space: nowrap; }
.plain { border: 1px solid var(--line); color: var(--soft); font-weight: 400; }
.cause, .loose { border-top: 1px solid var(--line); padding: .85rem 0; }
.cause header { display: flex; gap: .75rem; align-items: baseline; }
.cause h3 { flex: 0 1 auto; }
details { margin: .5rem 0; }
summary { cursor: pointer; color: var(--accent); width: fit-content; }
.finding { margin: .5rem 0 .5rem 1rem; }
.command { background: var(--panel); padding: .1rem .4rem; border-radius: .25rem; }
.box { overflow: auto; width: fit-content; max-width: 100%; border: 1px solid var(--line); border-radius: .4rem; }
.matrix { max-height: 80vh; }
table { border-collapse: separate; border-spacing: 0; }
th, td {
  text-align: left; vertical-align: top; padding: .3rem .6rem; font-weight: inherit;
  border-bottom: 1px solid var(--line);
}
.values th, .values td { min-width: 7rem; max-width: 40rem; }
.values td:nth-child(2) { min-width: 0; white-space: nowrap; }
tbody tr:last-child > * { border-bottom: 0; }
thead th { position: sticky; top: 0; z-index: 1; background: var(--panel); font-weight: 600; }
.matrix tbody th { position: sticky; left: 0; background: var(--page); white-space: nowrap; }
.matrix tbody th > * { display: inline-block; vertical-align: bottom; max-width: 14rem; overflow: hidden; text-overflow: ellipsis; }
.matrix thead th:first-child { left: 0; z-index: 2; }
.matrix thead th { white-space: nowrap; vertical-align: bottom; }
.matrix thead th > bdi { display: inline-block; vertical-align: bottom; max-width: 14rem; overflow: hidden; text-overflow: ellipsis; }
.matrix td { text-align: center; vertical-align: middle; min-width: 1.75rem; border-left: 1px solid var(--line); }
.matrix td[colspan] { text-align: left; background: none; }
.matrix td[colspan] a { font-weight: inherit; }
.matrix td a { color: inherit; display: block; font-weight: 700; text-decoration: none; }
.matrix td.n { color: var(--soft); }
.tall thead th:not(:first-child) { writing-mode: vertical-rl; rotate: 180deg; padding: .6rem .3rem; text-align: left; }
.tall thead th:not(:first-child) { vertical-align: top; }
.tall td { padding: .2rem; }
.tall td[colspan] { padding: .2rem .6rem; }
.legend { display: flex; flex-wrap: wrap; gap: .35rem 1rem; list-style: none; padding: 0; font-size: .9rem; }
.legend b { display: inline-block; width: 1.6rem; text-align: center; border-radius: .2rem; margin-right: .3rem; }
.only { display: inline-block; margin: .5rem .5rem .5rem 0; vertical-align: middle; }
#only:checked ~ .matrix tr.k { display: none; }
.dossier { display: none; margin: 1.25rem 0; padding: 1rem 1.25rem; border: 2px solid var(--accent); border-radius: .4rem; }
.dossier:target { display: block; }
.dossier > header { display: flex; flex-wrap: wrap; gap: .5rem 1rem; align-items: baseline; }
.dossier > header h3 { font-size: 1.15rem; }
.dossier > header a { margin-left: auto; }
.layers th, .layers td { padding: .15rem .6rem; font-size: .875rem; white-space: nowrap; }
.layers th[scope=row] { padding-left: 1.2rem; color: var(--soft); }
.layers th[scope=rowgroup] { font-weight: 600; }
.odd td, .odd th { color: var(--e); background: var(--e-back); }
.odd th { font-weight: 700; }
.fresh { color: var(--page); background: var(--accent); }
.routers tbody td { text-align: left; white-space: nowrap; }
.routers tbody td.number, td.number { text-align: right; }
.values td.number { min-width: 0; }
.router { border-top: 1px solid var(--line); padding: .75rem 0 0; margin: .75rem 0; }
.router > summary { color: inherit; }
.router > div { margin: .75rem 0 1.5rem; padding-left: clamp(0rem, 2vw, 1.5rem); }
footer { margin-top: 4rem; font-size: .9rem; color: var(--soft); }
@media (max-width: 40rem) {
  body { padding-top: 1rem; }
  .facts { grid-template-columns: 1fr; gap: 0; }
  .facts dd { margin-bottom: .4rem; }
  .dossier { padding: .75rem; }
  .dossier > header a { margin-left: 0; }
  .matrix tbody th > *, .matrix thead th > bdi { max-width: 8rem; }
}
@media print {
  :root { color-scheme: light; }
  @page { margin: 12mm; }
  body { max-width: none; padding: 0; font-size: 9pt; }
  nav, .search, .only, .dossier > header a { display: none !important; }
  h2 { break-after: avoid; margin-top: 1.5rem; }
  .cause, .dossier tr, .matrix tr { break-inside: avoid; }
  .box { overflow: visible; max-height: none; border: 0; }
  thead th, .matrix tbody th { position: static; }
  .dossier { display: block; border: 1px solid var(--line); }
  .dossier.calm:not(:target) { display: none; }
  .layers th, .layers td { padding: 0 .3rem; font-size: 7pt; white-space: normal; }
  .matrix th, .matrix td { padding: 0 .15rem; font-size: 7pt; min-width: 0; }
  details::details-content { content-visibility: visible; display: block; }
  .e, .w, .q, .k, .odd td, .odd th { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
}
)css";

constexpr std::string_view script = R"js(
'use strict';
const box = document.getElementById('search');
const field = document.getElementById('words');
const result = document.getElementById('result');
const items = Array.from(document.querySelectorAll('[data-hit]'), (element) => ({element}));
// The text of a row is that of its dossier or fold as well.
const textOf = (item) => {
  if (item.text === undefined) {
    const more = document.getElementById(item.element.dataset.hit);
    item.fold = more ? more.closest('details') : null;
    item.text = (item.element.textContent + ' ' + (more ? more.textContent : '')).toLowerCase();
  }
  return item.text;
};
const search = () => {
  const words = field.value.toLowerCase().split(/\s+/).filter(Boolean);
  let found = 0;
  if (words.length > 0) for (const fold of document.querySelectorAll('details.more')) fold.open = true;
  for (const item of items) {
    const fits = words.every((word) => textOf(item).includes(word));
    item.element.hidden = !fits;
    if (item.fold) item.fold.hidden = !fits;
    found += fits ? 1 : 0;
  }
  result.textContent = words.length === 0 ? '' : found + ' of ' + items.length + ' entries';
};
box.hidden = false;
field.addEventListener('input', search);
// A link can lead into a fold.
const unfold = () => {
  const target = document.getElementById(location.hash.slice(1));
  const fold = target ? target.closest('details') : null;
  if (fold && !fold.open) {
    fold.open = true;
    target.scrollIntoView();
  }
};
addEventListener('hashchange', unfold);
unfold();
let opened = [];
addEventListener('beforeprint', () => {
  opened = Array.from(document.querySelectorAll('details:not([open])'));
  for (const fold of opened) fold.open = true;
});
addEventListener('afterprint', () => {
  for (const fold of opened) fold.open = false;
});
)js";

}  // namespace

std::string_view page_style() {
  return style;
}

std::string_view page_script() {
  return script;
}

std::string_view page_script_hash() {
  return "sha256-8IAhFJZnS529wA19X2sbs9YYWoPUD1bHsdOaRMtQel0=";
}

}  // namespace desk
