#pragma once

/// What the page of `html` looks like, and what its script does. The page's policy
/// allows these two texts by their hashes, and nothing else.
namespace hv {

inline constexpr const char *html_style = R"(
:root {
  color-scheme: light dark;
  --text: #1d2329; --quiet: #56606b; --page: #ffffff; --band: #f3f5f7;
  --line: #c9d0d7; --bar: #1f5fa8; --alert: #a5281b;
}
@media (prefers-color-scheme: dark) {
  :root {
    --text: #e4e8ec; --quiet: #a3adb8; --page: #15191e; --band: #1f252c;
    --line: #414b56; --bar: #6fb0f2; --alert: #ff9d8f;
  }
}
body {
  margin: 0 auto; padding: 1rem 1.5rem; max-width: 90rem;
  background: var(--page); color: var(--text);
  font: 15px/1.45 system-ui, "DejaVu Sans", sans-serif;
}
h1 { font-size: 1.5rem; overflow-wrap: anywhere; }
h2 { font-size: 1.15rem; margin-top: 2rem; }
table { border-collapse: collapse; }
th, td {
  padding: .3rem .6rem; border-bottom: 1px solid var(--line);
  text-align: left; vertical-align: top;
}
th { white-space: nowrap; }
td { font-variant-numeric: tabular-nums; overflow-wrap: anywhere; }
td.number, th.number { text-align: right; white-space: nowrap; }
td.time { white-space: nowrap; }
td.number, td.time, th { overflow-wrap: normal; }
#deletions { width: 100%; }
#deletions thead th { position: sticky; top: 0; background: var(--band); }
#deletions td { white-space: nowrap; }
#deletions td.user { white-space: normal; overflow-wrap: anywhere; max-width: 12rem; }
#deletions td:last-child { white-space: normal; overflow-wrap: anywhere; width: 99%; }
th button { font: inherit; font-weight: bold; color: inherit; background: none;
  border: 0; padding: 0; cursor: pointer; text-decoration: underline dotted; }
th[aria-sort=ascending] button::after { content: " \2191"; }
th[aria-sort=descending] button::after { content: " \2193"; }
form { display: flex; flex-wrap: wrap; gap: .5rem 1.2rem; margin: .7rem 0;
  align-items: center; }
form[hidden] { display: none; }
input, select { font: inherit; padding: .15rem .35rem; }
input { min-width: 18rem; }
select { max-width: 20rem; }
:focus-visible { outline: 3px solid var(--bar); outline-offset: 2px; }
summary { cursor: pointer; }
details > div { margin: .4rem 0 1rem; padding: .2rem 1rem; background: var(--band);
  border-left: 3px solid var(--bar); }
/* The cells before it are empty beside it. */
@media screen and (min-width: 70rem) {
  details > div { margin-left: -24rem; position: relative; }
}
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1rem 1rem;
  margin: .4rem 0 .8rem; }
dt { color: var(--quiet); }
dd { margin: 0; overflow-wrap: anywhere; }
dd ul { margin: 0; padding-left: 1.1rem; }
code { font-family: "DejaVu Sans Mono", monospace; font-size: .9em; }
.quiet { color: var(--quiet); }
.alert { color: var(--alert); font-weight: bold; }
figure { margin: 0; overflow-x: auto; }
svg { width: 100%; min-width: 40rem; max-width: 75rem; height: auto; }
svg text { font: 12px system-ui, "DejaVu Sans", sans-serif; fill: var(--text); }
.bar { fill: var(--bar); }
.axis { stroke: var(--line); }
@media print {
  :root { --text: #000; --quiet: #333; --page: #fff; --band: #fff; --line: #999;
    --bar: #000; --alert: #000; }
  body { font-size: 10px; max-width: none; padding: 0; }
  form, .screen { display: none; }
  #deletions thead th { position: static; }
  tr { break-inside: avoid; }
}
)";

// The state of the view is kept in the fragment of the address, so that a view can be
// kept as a bookmark: #sort=size,descending&filter=text&user=1001&state=emptied
inline constexpr const char *html_script = R"(
"use strict";
(() => {
  const table = document.getElementById("deletions");
  if (!table) return;
  const form = document.getElementById("view");
  const body = table.tBodies[0];
  const heads = [...table.tHead.rows[0].cells];
  const names = heads.map(head => head.dataset.column);
  const state_column = names.indexOf("state");
  const user_column = names.indexOf("user");
  const first_order = [...body.rows];
  const shown = document.getElementById("shown");
  let sorted = null;

  // What is compared: of cells with details, only the line that is always shown.
  const text_of = (row, column) => {
    const cell = row.cells[column];
    return (cell.querySelector("summary") || cell).textContent;
  };
  const texts = new Map(first_order.map(row =>
    [row, heads.map((head, column) => text_of(row, column))]));
  const found_in = new Map(first_order.map(row =>
    [row, texts.get(row).join("\n").toLowerCase()]));

  const compare = (column, is_number) => (a, b) => {
    const x = texts.get(a)[column], y = texts.get(b)[column];
    // What isn't known comes last in both directions.
    if (x === "-" || y === "-") return (x === "-") - (y === "-") || 0;
    const order = is_number
      ? Number(x.replaceAll(",", "")) - Number(y.replaceAll(",", ""))
      : x < y ? -1 : x > y ? 1 : 0;
    return sorted.descending ? -order : order;
  };

  const apply_sort = () => {
    let rows = first_order;
    if (sorted) {
      const is_number = heads[sorted.column].classList.contains("number");
      rows = [...first_order].sort(compare(sorted.column, is_number));
    }
    heads.forEach((head, column) => {
      if (!sorted || sorted.column !== column) head.removeAttribute("aria-sort");
      else head.setAttribute("aria-sort", sorted.descending ? "descending" : "ascending");
    });
    const ordered = document.createDocumentFragment();
    for (const row of rows) ordered.append(row);
    body.append(ordered);
  };

  const apply_filter = () => {
    const wanted = form.filter.value.toLowerCase();
    const user = form.user.value, state = form.state.value;
    let count = 0;
    for (const row of first_order) {
      const cells = texts.get(row);
      const is_shown = found_in.get(row).includes(wanted) &&
        (!user || cells[user_column] === user) &&
        (!state || cells[state_column] === state);
      row.hidden = !is_shown;
      count += is_shown;
    }
    shown.textContent = count.toLocaleString("en") + " of " +
      first_order.length.toLocaleString("en") + " rows shown";
  };

  const write_address = () => {
    const parts = new URLSearchParams();
    if (sorted)
      parts.set("sort", names[sorted.column] + (sorted.descending ? ",descending" : ""));
    for (const field of ["filter", "user", "state"])
      if (form[field].value) parts.set(field, form[field].value);
    history.replaceState(null, "", "#" + parts);
  };

  const read_address = () => {
    const parts = new URLSearchParams(location.hash.slice(1));
    const [name, direction] = (parts.get("sort") || "").split(",");
    const column = names.indexOf(name);
    sorted = column < 0 ? null : {column, descending: direction === "descending"};
    for (const field of ["filter", "user", "state"])
      form[field].value = parts.get(field) || "";
    if (sorted || table.querySelector("[aria-sort]")) apply_sort();
    apply_filter();
  };

  const fill = (choice, column) => {
    for (const text of [...new Set(first_order.map(row => texts.get(row)[column]))].sort())
      choice.append(new Option(text, text));
  };
  fill(form.user, user_column);
  fill(form.state, state_column);

  heads.forEach((head, column) => {
    const button = document.createElement("button");
    button.type = "button";
    button.textContent = head.textContent;
    button.addEventListener("click", () => {
      const again = sorted && sorted.column === column;
      sorted = {column, descending: again && !sorted.descending};
      apply_sort();
      write_address();
    });
    head.replaceChildren(button);
  });
  form.addEventListener("input", () => { apply_filter(); write_address(); });
  form.addEventListener("submit", event => event.preventDefault());
  window.addEventListener("hashchange", read_address);
  form.hidden = false;
  read_address();
})();
)";

} // namespace hv
