"use strict";
(() => {
  const body = document.querySelector("#matrix tbody");
  const rows = [...body.rows];
  const texts = new Map(rows.map((row) => [row, row.textContent.toLowerCase()]));
  const buttons = [...document.querySelectorAll(".filters button")];
  const heads = [...document.querySelectorAll("#matrix thead th")];
  const filter = document.getElementById("filter");
  const shown = document.getElementById("shown");
  const order = new Intl.Collator("en", { numeric: true });
  const number = new Intl.NumberFormat("en");

  function show() {
    const words = filter.value.toLowerCase().split(/\s+/);
    const results = buttons.filter((b) => b.ariaPressed === "true").map((b) => b.dataset.result);
    let count = 0;
    for (const row of rows) {
      const fits = (!results.length || results.includes(row.dataset.result)) &&
        words.every((word) => texts.get(row).includes(word));
      row.hidden = !fits;
      count += fits;
    }
    const all = number.format(rows.length) + (rows.length === 1 ? " server" : " servers");
    shown.value = count === rows.length ? all : `${number.format(count)} of ${all}`;
  }

  // By the rank of a state or the seconds where the cell has one, then by what it says.
  function compare(place, a, b) {
    const [one, other] = [a.cells[place], b.cells[place]];
    return (one.dataset.sort ?? 0) - (other.dataset.sort ?? 0) || order.compare(one.textContent, other.textContent);
  }

  function sort(place) {
    const direction = heads[place].ariaSort === "ascending" ? "descending" : "ascending";
    heads.forEach((head) => { head.ariaSort = "none"; });
    heads[place].ariaSort = direction;
    const sorted = [...rows].sort((a, b) => compare(place, a, b));
    body.append(...(direction === "ascending" ? sorted : sorted.reverse()));
  }

  // A link to a server that the filter hides shows all.
  function follow() {
    const row = document.getElementById(location.hash.slice(1));
    if (!row?.hidden) return;
    filter.value = "";
    buttons.forEach((button) => { button.ariaPressed = "false"; });
    show();
    row.scrollIntoView();
  }

  buttons.forEach((button) => button.addEventListener("click", () => {
    button.ariaPressed = button.ariaPressed === "true" ? "false" : "true";
    show();
  }));
  filter.addEventListener("input", show);
  heads.forEach((head, place) => head.firstChild.addEventListener("click", () => sort(place)));
  addEventListener("hashchange", follow);
})();
