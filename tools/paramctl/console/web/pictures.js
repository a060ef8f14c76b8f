// Pictures of a module's values in plain SVG: a curve for a long 1-D table (a gamma table drawn
// against the identity and the 2.2 curve, its points draggable), a heat map for a grid of gains,
// and a trigger tree as nested intervals over its control variables.
"use strict";

const Pictures = (() => {
    const SvgNs = "http://www.w3.org/2000/svg";
    // Tables shorter than this are read better as numbers than as a curve.
    const CurveMinimumPoints = 16;

    function svg(tag, attributes, parent) {
        const node = document.createElementNS(SvgNs, tag);
        for (const [key, value] of Object.entries(attributes || {}))
            node.setAttribute(key, value);
        if (parent)
            parent.appendChild(node);
        return node;
    }

    function text(parent, x, y, content, attributes) {
        const node = svg("text", Object.assign({x, y}, attributes || {}), parent);
        node.textContent = content;
        return node;
    }

    // A gamma table's codes run to a power of two less one (255, 1023, 4095, ...).
    function codeRange(values) {
        let top = 255;
        const largest = Math.max(...values);
        while (top < largest)
            top = top * 2 + 1;
        return {low: 0, high: top};
    }

    function valueRange(values) {
        let low = Math.min(...values);
        let high = Math.max(...values);
        if (low === high) {
            low -= 1;
            high += 1;
        }
        const pad = (high - low) * 0.1;
        return {low: low - pad, high: high + pad};
    }

    // The number a dragged point takes: integers stay integers, other values keep 4 decimals.
    function roundLike(values, value) {
        return values.every(Number.isInteger) ? Math.round(value)
                                              : Math.round(value * 10000) / 10000;
    }

    /// A curve of view.values. view: {name, values, edit(index, value) -> Promise<bool>,
    /// onChange(listener)}; gamma adds the identity and the 2.2 reference curves.
    function curve(view, gamma) {
        const width = 480, height = 300, margin = 36;
        const root = svg("svg", {
            class: "curve",
            viewBox: `0 0 ${width} ${height}`,
            width,
            height,
            role: "group",
            "aria-label": `${view.name}: ${view.values.length} points`,
        });
        const range = gamma ? codeRange(view.values) : valueRange(view.values);
        const last = view.values.length - 1;
        const xOf = (index) => margin + (index / last) * (width - 2 * margin);
        const yOf = (value) =>
            height - margin - ((value - range.low) / (range.high - range.low)) * (height - 2 * margin);
        const valueOf = (y) =>
            range.low + ((height - margin - y) / (height - 2 * margin)) * (range.high - range.low);

        svg("rect", {x: margin, y: margin, width: width - 2 * margin, height: height - 2 * margin,
                     class: "plot"}, root);
        text(root, margin, height - 10, "0", {class: "axis"});
        text(root, width - margin, height - 10, String(last), {class: "axis", "text-anchor": "end"});
        text(root, margin - 4, margin + 4, String(Math.round(range.high * 100) / 100),
             {class: "axis", "text-anchor": "end"});
        if (gamma) {
            const reference = (exponent, cls) => {
                const points = [];
                for (let step = 0; step <= 64; ++step) {
                    const share = step / 64;
                    points.push(`${margin + share * (width - 2 * margin)},` +
                                `${yOf(range.high * Math.pow(share, exponent))}`);
                }
                svg("polyline", {points: points.join(" "), class: cls}, root);
            };
            reference(1, "identity");
            reference(1 / 2.2, "power");
            // The lower right corner stays clear of both the curves and the references.
            text(root, width - margin - 6, height - margin - 22, "- - identity",
                 {class: "legend identity-key", "text-anchor": "end"});
            text(root, width - margin - 6, height - margin - 8, "- - 2.2 curve",
                 {class: "legend power-key", "text-anchor": "end"});
        }
        const line = svg("polyline", {class: "values"}, root);
        const redraw = () => {
            line.setAttribute("points",
                              view.values.map((value, index) => `${xOf(index)},${yOf(value)}`).join(" "));
        };
        redraw();

        const points = view.values.map((value, index) => {
            const point = svg("circle", {
                cx: xOf(index), cy: yOf(value), r: 4, class: "point", tabindex: 0,
                role: "slider", "aria-label": `${view.name}[${index}]`,
                "aria-valuenow": value, "aria-valuemin": range.low, "aria-valuemax": range.high,
                "data-index": index,
            }, root);
            const commit = async (next) => {
                const previous = view.values[index];
                view.values[index] = next;
                redraw();
                if (!(await view.edit(index, next))) {
                    view.values[index] = previous;
                    redraw();
                    place(index);
                }
            };
            let dragging = false;
            point.addEventListener("pointerdown", (event) => {
                dragging = true;
                point.setPointerCapture(event.pointerId);
                event.preventDefault();
            });
            point.addEventListener("pointermove", (event) => {
                if (!dragging)
                    return;
                const y = Math.min(height - margin, Math.max(margin, toSvgY(event)));
                point.setAttribute("cy", y);
                view.values[index] = roundLike(view.values, valueOf(y));
                redraw();
            });
            point.addEventListener("pointerup", (event) => {
                if (!dragging)
                    return;
                dragging = false;
                point.releasePointerCapture(event.pointerId);
                commit(view.values[index]);
            });
            point.addEventListener("keydown", (event) => {
                const step = gamma ? 1 : (range.high - range.low) / 100;
                const delta = {ArrowUp: step, ArrowDown: -step}[event.key];
                if (delta === undefined)
                    return;
                event.preventDefault();
                commit(roundLike(view.values, view.values[index] + delta));
            });
            return point;
        });
        function toSvgY(event) {
            const box = root.getBoundingClientRect();
            return ((event.clientY - box.top) / box.height) * height;
        }
        function place(index) {
            points[index].setAttribute("cy", yOf(view.values[index]));
            points[index].setAttribute("aria-valuenow", view.values[index]);
        }
        view.onChange((index) => {
            place(index);
            redraw();
        });
        return root;
    }

    // The grid of a table of count cells: the factorisation closest to 4:3, columns first.
    function gridShape(count) {
        let best = null;
        for (let columns = 3; columns <= count / 3; ++columns) {
            if (count % columns !== 0)
                continue;
            const rows = count / columns;
            const error = Math.abs(Math.log(columns / rows / (4 / 3)));
            if (rows >= 3 && (best === null || error < best.error))
                best = {columns, rows, error};
        }
        return best;
    }

    function heatColour(share) {
        // Blue for the lowest gain through to red for the highest.
        const hue = 240 - 240 * share;
        return `hsl(${hue}, 80%, 50%)`;
    }

    /// A heat map of a grid of gains, or null when the table has no grid shape.
    function heatMap(view) {
        const shape = gridShape(view.values.length);
        if (shape === null)
            return null;
        const cell = Math.max(8, Math.min(28, Math.floor(480 / shape.columns)));
        const root = svg("svg", {
            class: "heatmap", width: shape.columns * cell, height: shape.rows * cell,
            viewBox: `0 0 ${shape.columns * cell} ${shape.rows * cell}`, role: "img",
            "aria-label": `${view.name}: ${shape.columns} by ${shape.rows} grid`,
        });
        const cells = view.values.map((value, index) => {
            const rect = svg("rect", {x: (index % shape.columns) * cell,
                                      y: Math.floor(index / shape.columns) * cell,
                                      width: cell, height: cell}, root);
            svg("title", {}, rect).textContent = `${view.name}[${index}] = ${value}`;
            return rect;
        });
        const paint = () => {
            const low = Math.min(...view.values), high = Math.max(...view.values);
            cells.forEach((rect, index) => {
                const share = high > low ? (view.values[index] - low) / (high - low) : 0.5;
                rect.setAttribute("fill", heatColour(share));
                rect.firstChild.textContent = `${view.name}[${index}] = ${view.values[index]}`;
            });
        };
        paint();
        view.onChange(paint);
        return root;
    }

    /// The picture for a numeric array, or null for a short one. A grid of gains is told by the
    /// array's own name: a table below a trigger level on a gain (drc_gain) is no grid.
    function forArray(view, instance) {
        if (view.values.length < CurveMinimumPoints)
            return null;
        if (/gain/i.test(view.name.slice(view.name.lastIndexOf(".") + 1))) {
            const map = heatMap(view);
            if (map !== null)
                return map;
        }
        return curve(view, /gamma/i.test(instance));
    }

    // ---- Trigger trees ------------------------------------------------------------------------

    // The member at a value path, walking structures, lists and trigger nodes.
    function memberAt(members, path) {
        for (const member of members) {
            if (member.path === path)
                return member;
            if (path.startsWith(member.path)) {
                const found = memberAt(member.kind === "list" ? member.elements : member.members || [], path);
                if (found)
                    return found;
            }
        }
        return null;
    }

    // The trigger nodes nearest below a member: a node's children, through whatever holds them.
    function triggersBelow(member) {
        const found = [];
        for (const child of member.kind === "list" ? member.elements : member.members || []) {
            if (child.kind === "trigger")
                found.push(child);
            else if (child.kind === "list" || child.kind === "structure")
                found.push(...triggersBelow(child));
        }
        return found;
    }

    /// A trigger node's control variable: by the file's name, else by its number, else by the
    /// node's level.
    function variableName(trigger) {
        return trigger.variable !== null ? trigger.variable
               : trigger.control !== null ? `variable ${trigger.control}`
                                          : `level ${trigger.level}`;
    }

    // A trigger node as the picture draws it.
    function treeNode(trigger) {
        const variable = variableName(trigger);
        const discrete = trigger.value !== undefined;
        const value = Number(discrete ? trigger.value : trigger.start);
        return {
            variable, discrete,
            start: value,
            end: discrete ? value : Number(trigger.end),
            children: triggersBelow(trigger).map(treeNode),
            region: trigger.region,
        };
    }

    /// The trigger tree of a module answer: {generation, nodes}, or null for a module with none.
    function findTree(module) {
        if (!module.trigger)
            return null;
        const roots = memberAt(module.members, module.trigger.path);
        if (!roots)
            return null;
        return {generation: module.trigger.generation, nodes: triggersBelow(roots).map(treeNode)};
    }

    function depthOf(nodes) {
        return nodes.reduce((deepest, node) => Math.max(deepest, 1 + depthOf(node.children)), 0);
    }

    /// Nested intervals: each node a box inside its parent's, placed along its variable by its
    /// interval among its siblings; a leaf opens its region through openRegion(path).
    function triggerTree(tree, openRegion) {
        const width = 720, row = 26;
        const depth = Math.max(1, depthOf(tree.nodes));
        const height = depth * row + 8;
        const root = svg("svg", {
            class: "trigger-tree", viewBox: `0 0 ${width} ${height}`, width, height, role: "group",
            "aria-label": `trigger tree, generation ${tree.generation}, ${depth} levels`,
        });
        const format = (value) => Number.isFinite(value) ? String(Math.round(value * 1000) / 1000) : "?";
        const lay = (nodes, x0, x1, level) => {
            const spans = nodes.filter((node) => !node.discrete && node.end > node.start);
            const low = Math.min(...spans.map((node) => node.start));
            const high = Math.max(...spans.map((node) => node.end));
            const byInterval = spans.length === nodes.length && high > low;
            nodes.forEach((node, index) => {
                let left = x0 + ((x1 - x0) * index) / nodes.length;
                let right = x0 + ((x1 - x0) * (index + 1)) / nodes.length;
                if (byInterval) {
                    left = x0 + ((node.start - low) / (high - low)) * (x1 - x0);
                    right = x0 + ((node.end - low) / (high - low)) * (x1 - x0);
                }
                right = Math.max(right, left + 4);
                const group = svg("g", {class: node.children.length ? "node" : "node leaf"}, root);
                svg("rect", {x: left + 1, y: 4 + level * row, width: right - left - 2,
                             height: height - 8 - level * row, rx: 3}, group);
                const label = node.discrete ? `${node.variable} ${format(node.start)}`
                                            : `${node.variable} ${format(node.start)}–${format(node.end)}`;
                svg("title", {}, group).textContent = label;
                if (right - left > 60)
                    text(group, left + 5, 4 + level * row + 16, label, {class: "node-label"});
                if (node.children.length)
                    lay(node.children, left + 3, right - 3, level + 1);
                else if (node.region) {
                    group.setAttribute("tabindex", 0);
                    group.setAttribute("role", "button");
                    group.setAttribute("aria-label", `open the region of ${label}`);
                    group.dataset.region = node.region;
                    const open = () => openRegion(node.region);
                    group.addEventListener("click", open);
                    group.addEventListener("keydown", (event) => {
                        if (event.key === "Enter" || event.key === " ") {
                            event.preventDefault();
                            open();
                        }
                    });
                }
            });
        };
        lay(tree.nodes, 4, width - 4, 0);
        return root;
    }

    return {forArray, findTree, triggerTree, variableName};
})();
