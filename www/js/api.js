// Requests to the unit. Posts go out one after the other: what an operator does quickly arrives in the order in which it was
// done.

export class RequestFailed extends Error {
    constructor(status, reason) {
        super(reason);
        this.status = status;
    }
}

const no_answer = 'The unit does not answer.';

const reasons = {
    401: 'The unit asks for a log-in. Load the page again.',
    403: 'The unit takes changes only from its own pages. Load the page again from the unit\u2019s address.',
    404: 'The unit does not offer this.',
    413: 'That was too much at once.',
};

async function reach(url, options) {
    try {
        return await fetch(url, {cache: 'no-store', signal: AbortSignal.timeout(10000), ...options});
    } catch {
        throw new RequestFailed(0, no_answer);
    }
}

async function reason_of(response) {
    try {
        const answer = await response.json();
        if (typeof answer.error === 'string') return answer.error;
    } catch {
        // Not every refusal has a text.
    }
    return reasons[response.status] ?? `The unit refused (status ${response.status}).`;
}

export async function get_json(url) {
    const response = await reach(url, {});
    if (!response.ok) throw new RequestFailed(response.status, await reason_of(response));
    try {
        return await response.json();
    } catch {
        throw new RequestFailed(response.status, 'The unit\u2019s answer could not be read.');
    }
}

let last_post = Promise.resolve();

// A page that is left lets go of what it holds: such a request must outlive its page.
async function send_form(url, fields) {
    const response = await reach(url, {method: 'POST', body: new URLSearchParams(fields), keepalive: true});
    if (!response.ok) throw new RequestFailed(response.status, await reason_of(response));
}

export function post_form(url, fields) {
    const sent = last_post.then(() => send_form(url, fields));
    last_post = sent.catch(() => {});
    return sent;
}

const grid_url = '/cgi/gpioGrid.cgi';
const connection_url = '/cgi/gpioConn.cgi';

// An empty query is no request for the grid, so it is given a word that the unit does not know.
export const get_grid = () => get_json(`${grid_url}?grid`);
export const get_free = (kind) => get_json(`${grid_url}?getFreeGpio=${kind}`);
export const get_panel = () => get_json('/api/panel');
export const post_panel = (fields) => post_form('/api/panel', fields);
export const post_grid = (fields) => post_form(grid_url, fields);

// Status 501 is no news: an input that was connected to a handler is answered with it as well. The grid tells what happened.
export async function post_unless_refused(url, fields) {
    try {
        await post_form(url, fields);
    } catch (error) {
        if (error.status !== 501) throw error;
    }
}
export const post_connection = (fields) => post_unless_refused(connection_url, fields);
export const post_item = (fields) => post_unless_refused(grid_url, fields);
