// SPDX-License-Identifier: Apache-2.0
// What the host says is put into the page as text alone, here: nothing in these files makes markup of it.

const SvgNamespace = 'http://www.w3.org/2000/svg';

export const byId = (id) => document.getElementById(id);

/** An element with `attributes` and `children`, each a node or a text. */
export function make(tag, attributes = {}, ...children) {
    return filled(document.createElement(tag), attributes, children);
}

export function makeSvg(tag, attributes = {}, ...children) {
    return filled(document.createElementNS(SvgNamespace, tag), attributes, children);
}

function filled(node, attributes, children) {
    for (const [name, value] of Object.entries(attributes))
        setAttribute(node, name, value);
    node.append(...children);
    return node;
}

// What has not changed is not written: that would have the browser lay it out, and a live region say it, once more.

export function setText(node, text) {
    const string = String(text);
    if (node.textContent !== string)
        node.textContent = string;
}

/** Null and false take the attribute away. */
export function setAttribute(node, name, value) {
    if (value === null || value === undefined || value === false)
        node.removeAttribute(name);
    else if (node.getAttribute(name) !== String(value))
        node.setAttribute(name, String(value));
}

/** An element that is nothing without its text. */
export function setTextOrHide(node, text) {
    setText(node, text);
    node.hidden = !text;
}

/**
 * Keeps one node in `parent` for each of the items that its result is called with, in their order. `makeItem(item)`
 * gives `{node, update(item)}`. A node stays with its key, so that the focus stays where it is, and only so many are
 * shown: what is left out is told in `more`.
 */
export function keyedList(parent, {keyOf, makeItem, most = 200, more = null}) {
    let shown = new Map();
    return (items) => {
        const next = new Map();
        for (const item of items.slice(0, most))
            next.set(String(keyOf(item)), item);
        for (const [key, entry] of shown) {
            if (!next.has(key)) {
                if (entry.node.contains(document.activeElement))
                    homeOf(parent).focus();
                entry.node.remove();
                shown.delete(key);
            }
        }
        let place = parent.firstElementChild;
        const order = new Map();
        for (const [key, item] of next) {
            const entry = shown.get(key) ?? makeItem(item);
            if (entry.node === place)
                place = place.nextElementSibling;
            else
                parent.insertBefore(entry.node, place);
            entry.update(item);
            order.set(key, entry);
        }
        shown = order;
        if (more)
            setTextOrHide(more, items.length > most ? `and ${items.length - most} more` : '');
    };
}

/**
 * A table whose rows follow the items that its result is called with; without any it is hidden. A column is
 * `{title, kind, make(item)}`: `make` gives `{nodes, update(item)}`. The roles are told in full, since a narrow window
 * shows the rows as blocks.
 */
export function keyedTable(table, columns, options) {
    const titles = columns.map(({title, kind}) =>
        make('th', {role: 'columnheader', scope: 'col', class: kind}, title));
    const body = make('tbody', {role: 'rowgroup'});
    setAttribute(table, 'role', 'table');
    table.replaceChildren(make('thead', {role: 'rowgroup'}, make('tr', {role: 'row'}, ...titles)), body);
    const makeItem = (item) => {
        const cells = columns.map((column) => column.make(item));
        const row = make('tr', {role: 'row'}, ...cells.map(({nodes}, i) => i === 0
            ? make('th', {role: 'rowheader', scope: 'row', class: columns[i].kind}, ...nodes)
            : make('td', {role: 'cell', class: columns[i].kind, 'data-title': columns[i].title}, ...nodes)));
        return {
            node: row,
            update(newItem) {
                for (const cell of cells)
                    cell.update(newItem);
                setAttribute(row, 'class', options.rowClass?.(newItem) || null);
            },
        };
    };
    const update = keyedList(body, {...options, makeItem});
    return (items) => {
        table.hidden = items.length === 0;
        update(items);
    };
}

/** A cell of `keyedTable` with a first line and a smaller second one. */
export function twoLines(first, second = () => '') {
    return () => {
        const above = make('span', {class: 'first'});
        const below = make('span', {class: 'second'});
        return {
            nodes: [above, below],
            update(item) {
                setTextOrHide(above, first(item));
                setTextOrHide(below, second(item));
            },
        };
    };
}

/** A cell with a word of `kind`, which is its colour, and a smaller second line. */
export function badgeCell(word, kind, second = () => '') {
    return () => {
        const badge = make('span');
        const below = make('span', {class: 'second'});
        return {
            nodes: [badge, below],
            update(item) {
                setTextOrHide(badge, word(item));
                setAttribute(badge, 'class', `badge ${kind(item)}`);
                setTextOrHide(below, second(item));
            },
        };
    };
}

export function makeButton(label, onClick) {
    const button = make('button', {type: 'button'}, label);
    button.addEventListener('click', () => onClick(button));
    return button;
}

/** Where the focus goes when what has it goes: the heading of its section. */
export const homeOf = (node) => node.closest('section')?.querySelector('[tabindex="-1"]') ?? byId('main');

/** Shows those of `buttons` that `isShown` wants. A focus in another goes on to one of them. */
export function showButtons(buttons, isShown) {
    const focused = buttons.find((button) => button === document.activeElement);
    for (const button of buttons)
        button.hidden = !isShown(button);
    if (focused?.hidden)
        (buttons.find(({hidden}) => !hidden) ?? homeOf(focused)).focus();
}

/** The rows of a `dl`: `[[name, text], …]`; those without a text are left out. */
export function factsList(parent) {
    const update = keyedList(parent, {
        keyOf: ([name]) => name,
        makeItem([name]) {
            const text = make('dd');
            return {node: make('div', {}, make('dt', {}, name), text), update: (fact) => setText(text, fact[1])};
        },
    });
    return (facts) => update(facts.filter(([, text]) => text !== ''));
}
