// SPDX-License-Identifier: Apache-2.0
// How the host is asked.

const TokenKey = 'zhost-token';
const PatienceMs = 8000;

/** The host's answer that it does not do it; `status` is that of HTTP. */
export class Refused extends Error {
    constructor(message, status) {
        super(message);
        this.status = status;
    }
}

let token = sessionStorage.getItem(TokenKey) ?? '';

/** Kept until the tab is closed, and nowhere else. */
export function setToken(text) {
    token = text;
    sessionStorage.setItem(TokenKey, text);
}

/** A link may bring the token, as "#token=…", which no server is told. It goes from the address at once. */
function takeTokenFromLink() {
    const given = new URLSearchParams(location.hash.slice(1)).get('token');
    if (!given)
        return;
    history.replaceState(null, '', location.pathname);
    setToken(given);
}
takeTokenFromLink();

export const hasToken = () => token !== '';

/** Nobody answers at all. */
export class NoAnswer extends Error {}

/** The answer, whose body is still to be read. Throws `Refused` or `NoAnswer`, and what `signal` throws. */
export async function send(path, {method = 'GET', body, accept = 'application/json', signal}) {
    const headers = {Accept: accept};
    if (token)
        headers.Authorization = `Bearer ${token}`;
    if (method !== 'GET')
        headers['Content-Type'] = 'application/json';
    const answer = await fetch(path, {method, headers, body, signal, cache: 'no-store', credentials: 'omit'})
        .catch((error) => {
            throw error instanceof TypeError ? new NoAnswer(error.message) : error;
        });
    if (!answer.ok)
        throw new Refused(await reasonIn(answer), answer.status);
    return answer;
}

async function reasonIn(answer) {
    const said = await answer.json().catch(() => null);
    return said?.error ?? `the host answers with the status ${answer.status}`;
}

/** What the host answers, as an object. */
export async function ask(path, {patienceMs = PatienceMs, ...options} = {}) {
    const answer = await send(path, {...options, signal: AbortSignal.timeout(patienceMs)});
    return answer.json();
}

export const post = (path, options = {}) => ask(path, {...options, method: 'POST'});

/** Why something has failed, as a sentence. */
export function reason(error) {
    if (error instanceof Refused)
        return `The host says: ${error.message}.`;
    if (error instanceof NoAnswer)
        return 'The host cannot be reached.';
    if (error.name === 'TimeoutError')
        return 'The host has not answered in time.';
    return `This page does not understand the host: ${error.message}.`;
}
