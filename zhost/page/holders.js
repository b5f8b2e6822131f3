// SPDX-License-Identifier: Apache-2.0
// The picture of who holds a plugin in memory: the file, what holds it, and who was given that.

import {make, makeSvg} from './dom.js';
import {nameOf} from './versions.js';
import {classOf} from './words.js';

const MostHolders = 12;
const MostUsers = 6; // of each holder
const LineHeight = 15, CharWidth = 6.4, Padding = 8, Gap = 8; // of a text of 12 px, roughly
const NarrowWidth = 620; // below it there is no room for columns

const rest = (text) => ({text, kind: 'more', children: []});

/** A tree of `{text, kind, children}`: the file, its holders, and the components that were given what holds it. */
function treeOf(file, plugins) {
    const holders = file.heldBy.slice(0, MostHolders).map((holder) => ({
        text: holder.text, kind: 'holder', children: usersOf(holder, file, plugins),
    }));
    if (file.heldBy.length > MostHolders)
        holders.push(rest(`and ${file.heldBy.length - MostHolders} more`));
    if (holders.length === 0)
        holders.push(rest(file.inMemory ? 'nobody known holds it' : 'it is not in memory'));
    return {text: nameOf(file), kind: 'file', children: holders};
}

/** The components that were given the interface which the file serves. */
function usersOf(holder, file, plugins) {
    const isMeant = ({interface: name, given}) => given && name === holder.name;
    if (holder.kind !== 'service')
        return [];
    const users = plugins.filter((other) => other.file !== file.file).flatMap((other) =>
        other.components.filter(({properties}) => properties.some(isMeant)).map((component) => ({
            text: `given to ${classOf(component.class, other.file)}`, kind: 'user', children: [],
        })));
    const extra = users.length - MostUsers;
    return extra > 0 ? [...users.slice(0, MostUsers), rest(`and ${extra} more`)] : users;
}

/** `text` in lines of so many characters; a word that is longer is cut into pieces. */
function wrapped(text, length) {
    const lines = [''];
    for (const word of text.match(new RegExp(`\\S{1,${length}}`, 'g')) ?? []) {
        const last = lines[lines.length - 1];
        if (last === '')
            lines[lines.length - 1] = word;
        else if (last.length + 1 + word.length <= length)
            lines[lines.length - 1] = `${last} ${word}`;
        else
            lines.push(word);
    }
    return lines;
}

/** Gives each node its box. Side by side, a node stands beside the middle of its children. */
function placeInColumns(root, width) {
    const columns = [0, 0.28, 0.64, 1].map((part) => Math.floor(part * width));
    const place = (node, depth, top) => {
        node.x = columns[depth];
        node.width = columns[depth + 1] - columns[depth] - (depth < 2 ? 40 : 2);
        fold(node);
        let bottom = top;
        for (const child of node.children)
            bottom = place(child, depth + 1, bottom);
        bottom = Math.max(bottom, top + node.height + Gap);
        node.y = top + (bottom - top - Gap - node.height) / 2;
        return bottom;
    };
    return place(root, 0, 1);
}

/** One below the other, each set in from its parent. */
function placeInRows(root, width) {
    const place = (node, depth, top) => {
        node.x = depth * 22;
        node.width = width - node.x - 2;
        node.y = top;
        fold(node);
        return node.children.reduce((bottom, child) => place(child, depth + 1, bottom), top + node.height + Gap);
    };
    return place(root, 0, 1);
}

function fold(node) {
    node.lines = wrapped(node.text, Math.max(8, Math.floor((node.width - 2 * Padding) / CharWidth)));
    node.height = node.lines.length * LineHeight + 2 * Padding - 2;
}

function drawBox({x, y, width, height, lines, kind}) {
    const texts = lines.map((line, i) =>
        makeSvg('text', {x: x + Padding, y: y + Padding + LineHeight * (i + 0.72)}, line));
    return makeSvg('g', {class: kind}, makeSvg('rect', {x: x + 0.5, y, width, height, rx: 5}), ...texts);
}

function linkBetween(parent, child, isNarrow) {
    const toY = child.y + child.height / 2;
    if (isNarrow)
        return `M${parent.x + 11} ${parent.y + parent.height}V${toY}H${child.x}`;
    const [fromX, fromY] = [parent.x + parent.width, parent.y + parent.height / 2];
    const middle = (fromX + child.x) / 2;
    return `M${child.x} ${toY}C${middle} ${toY} ${middle} ${fromY} ${fromX + 1} ${fromY}`;
}

function draw(root, width) {
    const isNarrow = width < NarrowWidth;
    const height = (isNarrow ? placeInRows : placeInColumns)(root, width);
    const links = [];
    const boxes = [];
    const visit = (node) => {
        boxes.push(drawBox(node));
        for (const child of node.children) {
            links.push(makeSvg('path', {d: linkBetween(node, child, isNarrow)}));
            visit(child);
        }
    };
    visit(root);
    return makeSvg('svg', {width, height, viewBox: `0 0 ${width} ${height}`, 'aria-hidden': 'true'},
                   ...links, ...boxes);
}

/** The same as nested lists, for whoever cannot see the picture. */
function listOf(nodes) {
    return make('ul', {}, ...nodes.map(({text, children}) =>
        make('li', {}, text, ...(children.length > 0 ? [listOf(children)] : []))));
}

/** Draws into `parent`, and once more when that has another width. */
export function makePicture(parent) {
    let root = null;
    let drawn = ''; // what the picture shows by now
    const redraw = () => {
        const width = Math.floor(parent.clientWidth);
        if (!root || width === 0)
            return;
        const wanted = JSON.stringify([width, root]);
        if (wanted === drawn)
            return;
        drawn = wanted;
        const list = make('div', {class: 'unseen'}, listOf(root.children));
        parent.replaceChildren(draw(structuredClone(root), width), list);
    };
    new ResizeObserver(redraw).observe(parent);
    return {
        show(file, plugins) {
            root = treeOf(file, plugins);
            redraw();
        },
    };
}
