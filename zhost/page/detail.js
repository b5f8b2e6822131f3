// SPDX-License-Identifier: Apache-2.0
import {badgeCell, byId, factsList, homeOf, keyedTable, make, setText, setTextOrHide, twoLines} from './dom.js';
import {makePicture} from './holders.js';
import {nameOf, presence, presenceNote, stateWord} from './versions.js';
import {ago, bytes, number} from './words.js';

/** The detail of one file of a plugin. */
export function makeDetail({onClose, makeActions}) {
    const panel = byId('detail');
    const facts = factsList(byId('detail-facts'));
    const picture = makePicture(byId('detail-picture'));
    const actions = makeActions();
    byId('detail-close').before(make('span', {class: 'buttons'}, ...actions.nodes));
    byId('detail-close').addEventListener('click', onClose);
    panel.addEventListener('keydown', (event) => {
        if (event.key === 'Escape')
            onClose();
    });

    const properties = keyedTable(byId('detail-components'), [
        {title: 'Property', make: twoLines(({property}) => property.name)},
        {title: 'Interface', make: twoLines(({property}) => property.interface)},
        {title: 'Given', make: badgeCell(givenWord, ({property}) => (property.given ? 'good' : 'warning'))},
        {title: 'Component', make: twoLines(({component}) => component.class, ({component}) => ago(component.since))},
    ], {keyOf: ({key}) => key, more: byId('detail-more')});

    return {
        /** Shows `file`; or nothing, if there is none. */
        show(file, plugins) {
            if (!file && panel.contains(document.activeElement))
                homeOf(panel.parentElement).focus();
            panel.hidden = !file;
            if (!file)
                return;
            setText(byId('detail-title'), nameOf(file));
            actions.update(file);
            facts(factsOf(file));
            picture.show(file, plugins);
            const rows = rowsOf(file.components);
            properties(rows);
            setTextOrHide(byId('detail-none'), rows.length > 0 ? '' : 'It has no component that is known.');
        },
    };
}

function givenWord({property: {name, given}}) {
    if (name === '')
        return ''; // the component has none
    return given ? 'given' : 'left null';
}

function factsOf(file) {
    return [
        ['Plugin', file.plugin],
        ['Version', file.version || 'the plain one'],
        ['State', stateWord(file)],
        ['Reason', file.reason ?? ''],
        ['In memory', [presence(file), presenceNote(file)].filter(Boolean).join(': ')],
        ['Root', file.root],
        ['Size', file.size > 0 ? `${bytes(file.size)} (${number(file.size, 'byte')})` : 'the file is gone'],
        ['Serves', file.serves.join(', ')],
        ['Endpoints', file.endpoints.join(', ')],
        ['Activities', file.activities.join(', ')],
        ['Has left behind', file.left],
    ];
}

/** One for each property; and one without any for each component that has none. */
function rowsOf(components) {
    return components.flatMap((component, index) => {
        const own = component.properties.length > 0 ? component.properties : [{name: '', interface: '', given: false}];
        return own.map((property) => ({component, property, key: `${index} ${property.name}`}));
    });
}
