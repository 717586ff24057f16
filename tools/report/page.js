
"use strict";
(() => {
    const byNumber = new Intl.Collator("en", { numeric: true });

    // Sorting: the text of each head becomes a button.
    const keyOf = (row, column) => {
        const cell = row.cells[column];
        const data = cell.querySelector("data");
        return data ? data.value : cell.textContent;
    };
    const sort = (table, head) => {
        const isAscending = head.getAttribute("aria-sort") !== "ascending";
        for (const other of head.parentNode.cells) {
            other.removeAttribute("aria-sort");
        }
        head.setAttribute("aria-sort", isAscending ? "ascending" : "descending");
        const sign = isAscending ? 1 : -1;
        const rows = Array.from(table.tBodies[0].rows, (row) => [keyOf(row, head.cellIndex), row]);
        rows.sort((one, other) => sign * byNumber.compare(one[0], other[0]));
        table.tBodies[0].append(...rows.map((row) => row[1]));
    };
    for (const table of document.querySelectorAll("table.sortable")) {
        for (const head of table.tHead.rows[0].cells) {
            const button = document.createElement("button");
            button.type = "button";
            button.textContent = head.textContent;
            button.addEventListener("click", () => sort(table, head));
            head.replaceChildren(button);
        }
    }

    // Filters: an item stays when it holds the text and, where that is wanted, is marked.
    for (const form of document.querySelectorAll("form.filter")) {
        const [text, onlyMarked] = form.querySelectorAll("input");
        const status = form.querySelector("[role=status]");
        let texts = null;
        const apply = () => {
            const items = document.querySelectorAll(form.dataset.items);
            texts = texts || new Map(Array.from(items, (item) => [item, item.textContent.toLowerCase()]));
            const wanted = text.value.trim().toLowerCase();
            let shown = 0;
            for (const item of items) {
                item.hidden = !texts.get(item).includes(wanted) || (onlyMarked.checked && !("marked" in item.dataset));
                shown += item.hidden ? 0 : 1;
            }
            status.textContent = shown + " of " + items.length + " shown";
        };
        form.addEventListener("input", apply);
        form.addEventListener("submit", (event) => event.preventDefault());
        form.hidden = false;
    }

    // A link into a folded part opens it, also where a browser does not do so by itself.
    const unfold = () => {
        const target = location.hash.length > 1 && document.getElementById(location.hash.slice(1));
        for (let part = target && target.closest("details"); part; part = part.parentNode.closest("details")) {
            part.open = true;
        }
        if (target) {
            target.scrollIntoView({ block: "center" });
        }
    };
    addEventListener("hashchange", unfold);
    unfold();

    // Details: a panel with the row that a box of a picture leads to.
    const panel = document.getElementById("details");
    const list = panel.querySelector("dl");
    let opener = null;
    const close = () => {
        panel.hidden = true;
        if (opener) {
            opener.focus();
        }
    };
    const show = (row) => {
        const heads = row.closest("table").tHead.rows[0].cells;
        panel.querySelector("h2").textContent = row.cells[0].textContent;
        list.replaceChildren();
        for (let i = 1; i < heads.length; ++i) {
            if (row.cells[i].textContent) {
                const term = document.createElement("dt");
                const description = document.createElement("dd");
                term.textContent = heads[i].textContent;
                description.append(...Array.from(row.cells[i].childNodes, (node) => node.cloneNode(true)));
                list.append(term, description);
            }
        }
        panel.hidden = false;
        panel.focus();
    };
    document.addEventListener("click", (event) => {
        const box = event.target.closest("a.box");
        const row = box && document.getElementById(box.getAttribute("href").slice(1));
        if (row && !event.ctrlKey && !event.metaKey && !event.shiftKey) {
            event.preventDefault();
            opener = box;
            show(row);
        }
    });
    panel.querySelector("button").addEventListener("click", close);
    document.addEventListener("keydown", (event) => {
        if (event.key === "Escape" && !panel.hidden) {
            close();
        }
    });
})();
