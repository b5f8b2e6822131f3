// SPDX-License-Identifier: Apache-2.0
import {confirm} from './dialogs.js';
import {badgeCell, byId, keyedTable, make, makeButton, setAttribute, setText, showButtons,
        twoLines} from './dom.js';
import {makeDetail} from './detail.js';
import {post} from './door.js';
import {isOfInterest, isOlder, nameOf, nature, presence, presenceNote, stateKind, stateWord,
        versions} from './versions.js';
import {number} from './words.js';

/** The table of plugins, and the detail of the one that is chosen. `refresh` asks the host once more. */
export function makePlugins(refresh) {
    let report = {plugins: []};
    let openFile = null; // whose detail is shown
    const all = byId('plugins-all');
    const detail = makeDetail({onClose: () => choose(null), makeActions});

    const update = keyedTable(byId('plugins-table'), [
        {title: 'File', kind: 'file', make: fileCell},
        {title: 'State', kind: 'state', make: badgeCell(stateWord, stateKind, (file) => file.reason ?? '')},
        {title: 'In memory', kind: 'memory', make: twoLines(presence, presenceNote)},
        {title: 'Actions', kind: 'actions', make: makeActions},
    ], {
        keyOf: ({file}) => file,
        more: byId('plugins-more'),
        rowClass: (file) => [file.file === openFile && 'chosen', !file.isRunning && 'faint'].filter(Boolean).join(' '),
    });

    function fileCell() {
        let shown = null;
        const button = makeButton('', () => choose(shown.file === openFile ? null : shown.file, button));
        setAttribute(button, 'class', 'link');
        setAttribute(button, 'aria-controls', 'detail');
        const below = make('span', {class: 'second'});
        return {
            nodes: [button, below],
            update(file) {
                shown = file;
                setText(button, nameOf(file));
                setAttribute(button, 'title', file.file);
                setAttribute(button, 'aria-expanded', String(file.file === openFile));
                setText(below, nature(file));
            },
        };
    }

    /** Two buttons, shown where they make sense; what they act on is what they were last updated with. */
    function makeActions() {
        let shown = null;
        const rollback = makeButton('Roll back…', (opener) => askRollback(shown, opener));
        const release = makeButton('Release…', (opener) => askRelease(shown, opener));
        return {
            nodes: [make('span', {class: 'buttons'}, rollback, release)],
            update(file) {
                shown = file;
                const others = report.plugins.filter((other) => other.plugin === file.plugin && other !== file);
                const makesSense = new Map([
                    [rollback, file.isRunning && others.some(({state}) => state === 'good')],
                    [release, isOlder(file) || (file.isRunning && others.some(isOlder))],
                ]);
                showButtons([rollback, release], (button) => makesSense.get(button));
                setAttribute(rollback, 'aria-label', `Roll back ${file.plugin}…`);
                setAttribute(release, 'aria-label', `Release older versions of ${file.plugin}…`);
            },
        };
    }

    function askRollback({plugin, file}, opener) {
        confirm({
            title: `Roll back ${plugin}?`,
            text: `The last good version before ${nameOf({file})} is deployed once more, under a newer name.`,
            yes: 'Roll back', opener,
            async act() {
                const {from, to} = await post(`/v1/plugins/${encodeURIComponent(plugin)}/rollback`);
                refresh();
                return `${plugin} is rolled back: ${from} comes again as ${to}.`;
            },
        });
    }

    function askRelease({plugin}, opener) {
        confirm({
            title: `Release ${plugin}?`,
            text: 'What holds its older versions in memory is asked to let go: their activities are cancelled, their ' +
                'endpoints called with the path “/release”.',
            yes: 'Release', opener,
            async act() {
                const {asked} = await post(`/v1/plugins/${encodeURIComponent(plugin)}/release`);
                refresh();
                return asked.length > 0 ? `${plugin}: asked to let go: ${asked.join(', ')}.`
                                        : `${plugin}: there was nobody to ask.`;
            },
        });
    }

    let opener = null; // the focus goes back there
    function choose(file, from = null) {
        openFile = file;
        if (from)
            opener = from;
        show(report);
        if (file)
            byId('detail-title').focus();
        else
            (opener?.checkVisibility() ? opener : byId('plugins-title')).focus();
    }

    function show(newReport) {
        report = {...newReport, plugins: versions(newReport.plugins)};
        const inMemory = report.plugins.filter((file) => file.inMemory);
        setText(byId('plugins-count'),
                `${number(inMemory.length, 'file')} in memory, ${report.plugins.length} known`);
        const open = report.plugins.find(({file}) => file === openFile);
        update(report.plugins.filter((file) => all.checked || isOfInterest(file) || file === open));
        detail.show(open, report.plugins);
        if (openFile && !open)
            openFile = null; // it is not known any more
    }

    all.addEventListener('change', () => show(report));
    return {show, open: (file) => choose(file, document.activeElement)};
}
