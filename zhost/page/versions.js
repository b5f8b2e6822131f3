// SPDX-License-Identifier: Apache-2.0
// A plugin has many files, one for each version: here is told which of them runs.

import {ago, bytes, fileName, number} from './words.js';

/** The files by plugin, the running one first. `isRunning` is of the one in memory that was loaded last. */
export function versions(plugins) {
    const latest = new Map();
    for (const file of plugins) {
        const other = latest.get(file.plugin);
        if (file.inMemory && !(other && isLater(other, file)))
            latest.set(file.plugin, file);
    }
    return plugins.map((file) => ({...file, isRunning: latest.get(file.plugin) === file})).sort(inOrder);
}

const isLater = (one, other) => Date.parse(one.loadedSince) > Date.parse(other.loadedSince);

const text = (one, other) => (one < other ? -1 : Number(one > other));

function inOrder(one, other) {
    return text(one.plugin, other.plugin) || other.isRunning - one.isRunning || other.inMemory - one.inMemory ||
        text(other.version, one.version) || text(one.file, other.file);
}

/** Whether an operator wants to see it without asking. */
export const isOfInterest = (file) => file.inMemory || file.state === 'quarantined' || file.state === 'on probation' ||
    Boolean(file.reason) || Boolean(file.left);

export const isOlder = (file) => file.inMemory && !file.isRunning;

/** "runs", and what else can be said of its being in memory. */
export function presence(file) {
    if (file.isRunning)
        return 'runs';
    return file.inMemory ? 'older, still in memory' : 'not in memory';
}

export function presenceNote(file) {
    if (!file.inMemory)
        return '';
    const holders = file.heldBy.length > 0 ? number(file.heldBy.length, 'holder') : 'nobody known holds it';
    return `${file.loadedSince ? `loaded ${ago(file.loadedSince)}, ` : ''}${holders}`;
}

const Kinds = {good: 'good', 'on probation': 'warning', quarantined: 'bad', gone: 'warning', unguarded: 'plain', unproven: 'plain'};

/** The colour of its state. */
export const stateKind = (file) => Kinds[file.state] ?? 'plain';

export const stateWord = (file) => (file.state === 'gone' ? 'file is gone' : file.state);

/** What it is, in a line. */
export const nature = (file) => [file.root, file.size > 0 ? bytes(file.size) : ''].filter(Boolean).join(', ');

export const nameOf = (file) => fileName(file.file);

/** What of the components of `file` was left null: `{component, property}` each. */
export function leftNull(file) {
    return file.components.flatMap((component) =>
        component.properties.filter(({given}) => !given).map((property) => ({component, property})));
}
