// The console page: the mode tree, the modules of the chosen branch, the chosen module's values
// and pictures, the differences against the comparison file, and saving.
"use strict";

(() => {
    const state = {session: null, table: 0, branch: null, instance: null};
    const byId = (id) => document.getElementById(id);

    function status(message, failed) {
        const line = byId("status");
        line.textContent = message;
        line.classList.toggle("failed", Boolean(failed));
    }

    function node(tag, attributes, parent) {
        const created = document.createElement(tag);
        for (const [key, value] of Object.entries(attributes || {})) {
            if (key === "text")
                created.textContent = value;
            else
                created.setAttribute(key, value);
        }
        if (parent)
            parent.appendChild(created);
        return created;
    }

    async function showSession() {
        const answer = await Api.session();
        if (!answer.ok) {
            status(answer.body.error, true);
            return;
        }
        state.session = answer.body;
        const what = state.session.kind === "live"
                         ? `live: ${state.session.live}` + (state.session.files.length
                                                               ? ` (file ${state.session.files[0]})` : "")
                         : `file: ${state.session.files[0]}`;
        byId("session").textContent = what;
        // What this session cannot do is disabled, with the server's reason as its title.
        const unavailable = state.session.unavailable;
        byId("save").disabled = Boolean(unavailable.save);
        byId("save").title = unavailable.save || `writes ${state.session.saveTo}`;
        byId("show-diff").disabled = Boolean(unavailable.diff);
        byId("show-diff").title = unavailable.diff || `against ${state.session.compare}`;
    }

    // The mode tree as nested lists of buttons; the chosen branch is marked aria-current.
    function modeList(parent, modes, table) {
        const list = node("ul", {}, parent);
        for (const mode of modes) {
            const item = node("li", {}, list);
            const button = node("button", {type: "button", class: "mode", "data-table": table,
                                           "data-path": mode.path,
                                           title: mode.numeric +
                                                      (mode.modeId === null ? "" : `, Mode ID ${mode.modeId}`) +
                                                      (mode.resident ? ", resident" : ""),
                                           text: mode.name}, item);
            button.addEventListener("click", () => chooseBranch(table, mode.path));
            if (mode.children && mode.children.length)
                modeList(item, mode.children, table);
        }
        return list;
    }

    async function showTree() {
        const started = performance.now();
        const answer = await Api.tree();
        const holder = byId("mode-tree");
        holder.replaceChildren();
        if (!answer.ok) {
            status(answer.body.error, true);
            return;
        }
        for (const table of answer.body.tables) {
            const heading = node("h3", {text: `Table ${table.index}` + (table.name ? `: ${table.name}` : "")},
                                 holder);
            modeList(holder, table.modes, table.index).setAttribute("aria-label", heading.textContent);
        }
        document.body.dataset.treeMs = String(Math.round(performance.now() - started));
    }

    async function chooseBranch(table, branch) {
        delete document.body.dataset.shown;
        state.table = table;
        state.branch = branch;
        document.querySelectorAll("button.mode").forEach((button) => {
            const chosen = Number(button.dataset.table) === table && button.dataset.path === branch;
            if (chosen)
                button.setAttribute("aria-current", "true");
            else
                button.removeAttribute("aria-current");
        });
        const answer = await Api.modules(table, branch);
        const list = byId("module-list");
        list.replaceChildren();
        if (!answer.ok) {
            status(answer.body.error, true);
            return;
        }
        byId("branch").textContent = `${answer.body.branch} (table ${table})`;
        for (const module of answer.body.modules) {
            const item = node("li", {}, list);
            const button = node("button", {type: "button", class: "module",
                                           "data-instance": module.instance}, item);
            node("span", {class: "name", text: module.instance}, button);
            if (module.source !== null)
                node("span", {class: "source", text: ` from ${module.source}`}, button);
            if (!module.valueAccess) {
                button.disabled = true;
                button.title = "no values can be read for this module";
            }
            button.addEventListener("click", () => chooseModule(module.instance));
        }
        if (state.instance && answer.body.modules.some((module) => module.instance === state.instance))
            await chooseModule(state.instance);
        else
            clearModule();
        if (!byId("diff").hidden)
            await showDiff();
        shown();
    }

    // Marks what the page shows once it is drawn: "BRANCH:INSTANCE".
    function shown() {
        document.body.dataset.shown = `${state.branch}:${state.instance || ""}`;
    }

    function clearModule() {
        state.instance = null;
        byId("module-title").textContent = "Values";
        byId("module-source").textContent = "";
        byId("pictures").replaceChildren();
        byId("members").replaceChildren();
    }

    async function edit(path, value) {
        const answer = await Api.setValue(state.table, state.branch, state.instance, path, value);
        if (!answer.ok) {
            status(`not changed: ${answer.body.error}`, true);
            return {ok: false, error: answer.body.error};
        }
        status(`${state.instance} ${path} = ${answer.body.value}` +
               (answer.body.source === null ? "" : ` (in ${answer.body.source})`));
        return {ok: true, value: answer.body.value};
    }

    async function chooseModule(instance) {
        delete document.body.dataset.shown;
        const started = performance.now();
        const answer = await Api.module(state.table, state.branch, instance);
        if (!answer.ok) {
            status(answer.body.error, true);
            return;
        }
        state.instance = instance;
        document.querySelectorAll("button.module").forEach((button) => {
            if (button.dataset.instance === instance)
                button.setAttribute("aria-current", "true");
            else
                button.removeAttribute("aria-current");
        });
        const module = answer.body;
        byId("module-title").textContent = module.instance;
        byId("module-source").textContent = module.source === null ? state.session.unavailable.source
                                                                   : `values from mode ${module.source}`;
        const context = {instance: module.instance, source: module.source, edit};
        Members.render(byId("members"), module.members, context);
        const pictures = byId("pictures");
        pictures.replaceChildren();
        const tree = Pictures.findTree(module);
        if (tree !== null && tree.nodes.length) {
            node("h3", {text: "Trigger tree"}, pictures);
            pictures.appendChild(Pictures.triggerTree(tree, (path) => {
                if (Members.reveal(byId("members"), path))
                    status(`region ${path}`);
            }));
        }
        document.body.dataset.moduleMs = String(Math.round(performance.now() - started));
        shown();
    }

    function diffTable(parent, caption, headings, rows) {
        const table = node("table", {class: "diff"}, parent);
        node("caption", {text: caption}, table);
        const head = node("tr", {}, node("thead", {}, table));
        for (const heading of headings)
            node("th", {scope: "col", text: heading}, head);
        const body = node("tbody", {}, table);
        for (const row of rows) {
            const line = node("tr", {}, body);
            for (const cell of row)
                node("td", {text: cell === null || cell === undefined ? "—" : String(cell)}, line);
        }
    }

    async function showDiff() {
        const answer = await Api.diff(state.branch ? state.table : undefined, state.branch);
        const body = byId("diff-body");
        body.replaceChildren();
        if (!answer.ok) {
            node("p", {class: "error", text: answer.body.error}, body);
            return;
        }
        const diff = answer.body;
        node("p", {text: `${diff.a} (this session) against ${diff.b}` +
                             (state.branch ? `, read through ${state.branch}` : "") +
                             (diff.same ? ": the same" : "")}, body);
        if (diff.header.length)
            diffTable(body, "Header", ["Field", diff.a, diff.b],
                      diff.header.map((row) => [row.field, row.a, row.b]));
        if (diff.modes.length)
            diffTable(body, "Modes", ["Table", "Mode path", diff.a, diff.b],
                      diff.modes.map((row) => [row.table, row.mode, row.a, row.b]));
        // A module's mode path once where both files hold it in the same mode, else both.
        const values = [];
        for (const instance of diff.instances) {
            const mode = (side) => (side ? `${side.mode} (${side.version})` : "absent");
            const modes = mode(instance.a) === mode(instance.b)
                              ? mode(instance.a) : `${mode(instance.a)} → ${mode(instance.b)}`;
            if (!instance.values.length)
                values.push([instance.module, modes, "", "", ""]);
            for (const value of instance.values)
                values.push([instance.module, modes, value.path, value.a, value.b]);
        }
        if (values.length)
            diffTable(body, "Values", ["Module", "Mode path", "Value path", diff.a, diff.b], values);
    }

    function showView(diff) {
        byId("diff").hidden = !diff;
        byId("module").hidden = diff;
        byId("show-diff").setAttribute("aria-pressed", String(diff));
        byId("show-values").setAttribute("aria-pressed", String(!diff));
        if (diff)
            showDiff();
    }

    async function save() {
        const answer = await Api.save();
        if (!answer.ok) {
            status(`not saved: ${answer.body.error}`, true);
            return;
        }
        status(`saved to ${answer.body.file}: ${answer.body.values} value(s) differ from the file`);
    }

    byId("show-values").addEventListener("click", () => showView(false));
    byId("show-diff").addEventListener("click", () => showView(true));
    byId("save").addEventListener("click", save);
    (async () => {
        await showSession();
        await showTree();
        document.body.dataset.ready = "true";
    })();
})();
