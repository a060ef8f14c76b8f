// A module's members as a tree of editable values: a number is an input, an array a table of
// inputs (with its picture when it is long enough), a structure or a list a folding group.
"use strict";

const Members = (() => {
    // Arrays are tabled this many elements to a row.
    const TableColumns = 8;
    // Structures deeper than this start folded, so a large trigger tree stays readable.
    const OpenDepth = 3;
    let nextId = 0;

    function element(tag, attributes, parent) {
        const node = document.createElement(tag);
        for (const [key, value] of Object.entries(attributes || {})) {
            if (key === "text")
                node.textContent = value;
            else
                node.setAttribute(key, value);
        }
        if (parent)
            parent.appendChild(node);
        return node;
    }

    // An input for one number: Enter or leaving the field sends the edit; the server's reason
    // for a refusal shows beside it and the field goes back to the value it had.
    function numberInput(parent, label, value, send, errorBox) {
        const input = element("input", {type: "text", value, "aria-label": label,
                                         inputmode: "decimal", spellcheck: "false"}, parent);
        input.addEventListener("change", async () => {
            const accepted = await send(input.value);
            if (accepted === null) {
                input.value = input.defaultValue;
                return;
            }
            input.value = accepted;
            input.defaultValue = accepted;
            errorBox.textContent = "";
        });
        input.addEventListener("keydown", (event) => {
            if (event.key === "Escape") {
                input.value = input.defaultValue;
                errorBox.textContent = "";
            }
        });
        return input;
    }

    /// Renders members into container. context: {instance, source, edit(path, value) ->
    /// Promise<{ok, value, error}>}.
    function render(container, members, context) {
        container.replaceChildren();
        const list = element("ul", {class: "members", "aria-label": context.instance},
                             container);
        for (const child of members)
            renderMember(list, child, context, 0);
    }

    async function sendEdit(context, path, value, errorBox) {
        const result = await context.edit(path, value);
        if (!result.ok) {
            errorBox.textContent = `${path}: ${result.error}`;
            return null;
        }
        return result.value;
    }

    // A trigger node's control variable and its interval or value.
    function triggerLabel(trigger) {
        const variable = Pictures.variableName(trigger);
        return trigger.value !== undefined ? `${variable} ${trigger.value}`
                                           : `${variable} ${trigger.start}–${trigger.end}`;
    }

    function renderMember(parent, member, context, depth) {
        const item = element("li", {"data-path": member.path}, parent);
        if (member.kind === "value") {
            item.classList.add("value");
            const id = `value-${nextId++}`;
            element("label", {for: id, text: member.name}, item);
            const errorBox = element("span", {class: "error", role: "alert"});
            const input = numberInput(item, member.path, member.value,
                                      (text) => sendEdit(context, member.path, text, errorBox), errorBox);
            input.id = id;
            element("span", {class: "type", text: member.type}, item);
            element("span", {class: "source", text: context.source === null ? "" : `from ${context.source}`},
                    item);
            item.appendChild(errorBox);
            return;
        }
        const group = element("details", {"data-path": member.path}, item);
        const summary = element("summary", {}, group);
        element("span", {class: "name", text: member.name}, summary);
        let fill;
        if (member.kind === "array") {
            element("span", {class: "type", text: ` ${member.type}[${member.count}]`}, summary);
            fill = () => renderArray(group, member, context);
        } else {
            const count = member.kind === "list" ? ` ${member.count} element(s)`
                          : member.kind === "trigger" ? ` ${triggerLabel(member)}`
                          : member.type ? ` ${member.type}` : "";
            element("span", {class: "type", text: count}, summary);
            fill = () => {
                const children = element("ul", {}, group);
                for (const child of member.kind === "list" ? member.elements : member.members)
                    renderMember(children, child, context, depth + 1);
            };
        }
        // A folded group is filled when it is first opened: a large trigger tree holds
        // thousands of numbers, and only the opened part needs inputs.
        group.fill = () => {
            if (fill !== null) {
                fill();
                fill = null;
            }
        };
        group.addEventListener("toggle", () => group.open && group.fill());
        if (depth < OpenDepth) {
            group.fill();
            group.open = true;
        }
    }

    function renderArray(group, member, context) {
        const errorBox = element("p", {class: "error", role: "alert"});
        const listeners = [];
        const inputs = [];
        const view = {
            name: member.path,
            values: member.elements.map(Number),
            onChange: (listener) => listeners.push(listener),
            // An edit from a picture: the table follows when the server accepts it.
            edit: async (index, value) => {
                const accepted = await sendEdit(context, `${member.path}[${index}]`, value, errorBox);
                if (accepted === null)
                    return false;
                changed(index, accepted);
                return true;
            },
        };
        function changed(index, text) {
            view.values[index] = Number(text);
            inputs[index].value = text;
            inputs[index].defaultValue = text;
            listeners.forEach((listener) => listener(index));
        }
        const picture = Pictures.forArray(view, context.instance);
        if (picture !== null)
            group.appendChild(picture);
        group.appendChild(errorBox);
        const table = element("table", {class: "array"}, group);
        element("caption", {text: member.name + (context.source === null ? "" : ` from ${context.source}`),
                            class: "source"}, table);
        let row = null;
        member.elements.forEach((value, index) => {
            if (index % TableColumns === 0) {
                row = element("tr", {}, table);
                element("th", {scope: "row", text: String(index)}, row);
            }
            const cell = element("td", {}, row);
            const input = numberInput(cell, `${member.path}[${index}]`, value, async (text) => {
                const accepted = await sendEdit(context, `${member.path}[${index}]`, text, errorBox);
                if (accepted !== null) {
                    view.values[index] = Number(accepted);
                    listeners.forEach((listener) => listener(index));
                }
                return accepted;
            }, errorBox);
            inputs.push(input);
        });
    }

    // True when path lies below the group at prefix.
    function below(prefix, path) {
        return path.startsWith(prefix) && (path[prefix.length] === "." || path[prefix.length] === "[");
    }

    /// Unfolds the groups down to path (filling folded ones on the way) and everything inside it,
    /// scrolls to it and marks it. Answers false when the module has no such group.
    function reveal(container, path) {
        const find = () => container.querySelector(`details[data-path="${CSS.escape(path)}"]`);
        let target = find();
        while (target === null) {
            const outer = [...container.querySelectorAll("details")].find(
                (group) => group.fill && !group.open && below(group.dataset.path, path));
            if (!outer)
                return false;
            outer.fill();
            outer.open = true;
            target = find();
        }
        for (let node = target; node && node !== container; node = node.parentElement) {
            if (node.tagName === "DETAILS")
                node.open = true;
        }
        // A region is small: everything in it is unfolded, its tables and curves shown.
        for (let inner = target; inner; inner = target.querySelector("details:not([open])")) {
            inner.fill();
            inner.open = true;
        }
        container.querySelectorAll(".revealed").forEach((node) => node.classList.remove("revealed"));
        target.classList.add("revealed");
        const summary = target.querySelector("summary");
        summary.focus();
        target.scrollIntoView({block: "nearest"});
        return true;
    }

    return {render, reveal};
})();
