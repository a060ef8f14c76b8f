// The console's HTTP API: every call answers {ok, status, body}, with body the parsed JSON
// answer ({error} on failure) so that callers can show the server's reason as it is.
"use strict";

const Api = (() => {
    async function call(method, url, body) {
        const init = {method, headers: {}};
        if (body !== undefined) {
            init.headers["Content-Type"] = "application/json";
            init.body = JSON.stringify(body);
        }
        let response;
        try {
            response = await fetch(url, init);
        } catch (error) {
            return {ok: false, status: 0, body: {error: "the console server does not answer"}};
        }
        let parsed;
        try {
            parsed = await response.json();
        } catch (error) {
            parsed = {error: `answer ${response.status} is not JSON`};
        }
        return {ok: response.ok, status: response.status, body: parsed};
    }

    function query(params) {
        return Object.entries(params)
            .filter(([, value]) => value !== undefined && value !== null)
            .map(([key, value]) => `${key}=${encodeURIComponent(value)}`)
            .join("&");
    }

    return {
        session: () => call("GET", "/api/session"),
        tree: () => call("GET", "/api/tree"),
        modules: (table, branch) => call("GET", `/api/modules?${query({table, branch})}`),
        module: (table, branch, instance) =>
            call("GET", `/api/module?${query({table, branch, instance})}`),
        setValue: (table, branch, instance, path, value) =>
            call("PUT", "/api/value", {table, branch, instance, path, value}),
        save: () => call("POST", "/api/save"),
        diff: (table, branch) => call("GET", `/api/diff?${query({table, branch})}`),
    };
})();
