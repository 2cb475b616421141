// The settings page of velmorad: status, network settings (checked as typed, reviewed, applied
// with a confirmation window), the write filter and the log levels. It talks only to the
// daemon that served it, sends the operator's token with every request, and shows the
// daemon's own message next to whatever a refusal came from.
"use strict";

(function () {
  const TOKEN_KEY = "velmorad.token";
  const STATUS_EVERY_MS = 5000;
  const PENDING_EVERY_MS = 2000;
  // A request that has no answer by then counts as unreachable: a change that moved the
  // address the page talks to leaves its connection hanging rather than closed.
  const ANSWER_WITHIN_MS = 15000;
  const LEVELS = [["0", "trace"], ["1", "message"], ["2", "warning"], ["3", "error"]];
  const FILTER_STATES = { 0: "enabled (writes go to the overlay)", 1: "disabled" };
  const FILTER_COMMANDS = [["0", "No command"], ["1", "Enable"], ["2", "Disable"], ["4", "Commit"]];

  const $ = (id) => document.getElementById(id);
  let token = sessionStorage.getItem(TOKEN_KEY);

  // ---- Talking to the daemon ---------------------------------------------------------

  // A refusal: the status and the daemon's message (from its XML error page).
  class DaemonError extends Error {
    constructor(status, message) {
      super(message);
      this.status = status;
    }
  }
  // The daemon did not answer at all (stopped, or its address changed under us).
  class Unreachable extends Error {}

  function parseXml(text) {
    if (!text) return null;
    const doc = new DOMParser().parseFromString(text, "application/xml");
    return doc.getElementsByTagName("parsererror").length ? null : doc;
  }

  function messageOf(status, text, statusText) {
    const doc = parseXml(text);
    const error = doc && doc.documentElement.tagName === "error" ? doc.documentElement : null;
    if (error && error.getAttribute("message")) return error.getAttribute("message");
    return "the daemon answered " + status + (statusText ? " " + statusText : "");
  }

  async function call(method, path, body, type) {
    const headers = {};
    if (token) headers.Authorization = "Bearer " + token;
    if (body !== undefined) headers["Content-Type"] = type;
    const abort = new AbortController();
    const timer = setTimeout(() => abort.abort(), ANSWER_WITHIN_MS);
    let response, text;
    try {
      response = await fetch(path, { method, headers, body, cache: "no-store", credentials: "omit", signal: abort.signal });
      text = await response.text();
    } catch (e) {
      throw new Unreachable("the daemon does not answer");
    } finally {
      clearTimeout(timer);
    }
    if (!response.ok) {
      const error = new DaemonError(response.status, messageOf(response.status, text, response.statusText));
      if (response.status === 401) signOut("The daemon refused the token: " + error.message);
      throw error;
    }
    return { response, text, xml: parseXml(text) };
  }

  function show(target, text, kind) {
    target.textContent = text;
    target.classList.toggle("error", kind === "error");
    target.classList.toggle("ok", kind === "ok");
  }

  function describe(error) {
    if (error instanceof DaemonError) return error.message;
    if (error instanceof Unreachable) return "The daemon does not answer at " + location.host + ".";
    return String(error && error.message ? error.message : error);
  }

  function el(tag, attributes, ...children) {
    const node = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes || {})) {
      if (value === false || value === null || value === undefined) continue;
      if (name === "text") node.textContent = value;
      else node.setAttribute(name, value === true ? "" : value);
    }
    for (const child of children) if (child) node.append(child);
    return node;
  }

  // ---- Sign-in -------------------------------------------------------------------------

  function signOut(why) {
    token = null;
    sessionStorage.removeItem(TOKEN_KEY);
    stopTimers();
    $("panels").hidden = true;
    $("sign-out").hidden = true;
    $("sign-in").hidden = false;
    show($("sign-in-error"), why || "", "error");
    $("token").value = "";
    $("token").focus();
  }

  // The token is checked with a POST that changes nothing: /levels without a name is refused
  // as incomplete (400) after the token passed, and with 401 when the token is wrong.
  async function checkToken(candidate) {
    token = candidate;
    try {
      await call("POST", "/levels");
      return true;
    } catch (error) {
      if (error instanceof DaemonError && error.status === 400) return true;
      token = null;
      if (error instanceof DaemonError && error.status === 401) return false;
      throw error;
    }
  }

  $("sign-in-form").addEventListener("submit", async (event) => {
    event.preventDefault();
    const candidate = $("token").value.trim();
    if (!candidate) {
      show($("sign-in-error"), "Paste the token that `velmorad token` prints on the host.", "error");
      return;
    }
    try {
      if (!(await checkToken(candidate))) {
        show($("sign-in-error"), "The daemon refused this token. Check it with `velmorad token` on the host.", "error");
        $("token").focus();
        return;
      }
    } catch (error) {
      show($("sign-in-error"), describe(error), "error");
      return;
    }
    sessionStorage.setItem(TOKEN_KEY, candidate);
    token = candidate;
    start();
  });

  $("sign-out").addEventListener("click", () => signOut(""));

  // ---- Status --------------------------------------------------------------------------

  let statusTimer = null;

  function duration(seconds) {
    let s = Number(seconds);
    if (!Number.isFinite(s) || s < 0) return "-";
    const parts = [];
    for (const [unit, size] of [["d", 86400], ["h", 3600], ["min", 60]]) {
      if (s >= size) {
        parts.push(Math.floor(s / size) + " " + unit);
        s %= size;
      }
    }
    if (parts.length < 2) parts.push(s + " s");
    return parts.join(" ");
  }

  async function refreshStatus() {
    try {
      const { xml } = await call("GET", "/status");
      const status = xml.documentElement;
      $("status-version").textContent = status.getAttribute("version") || "-";
      $("status-uptime").textContent = duration(status.getAttribute("uptime"));
      $("status-requests").textContent = status.getAttribute("requests") || "-";
      $("status-connections").textContent = status.getAttribute("connections") || "-";
      show($("status-error"), "", null);
    } catch (error) {
      show($("status-error"), describe(error), "error");
    }
  }

  // ---- Checking values as they are typed -----------------------------------------------

  function isIpv4(text) {
    const parts = text.split(".");
    return parts.length === 4 && parts.every((p) => /^(0|[1-9][0-9]{0,2})$/.test(p) && Number(p) <= 255);
  }

  function ipv4Number(text) {
    return text.split(".").reduce((n, p) => n * 256 + Number(p), 0);
  }

  function isIpv6(text, zoneAllowed) {
    let s = text;
    const zone = s.indexOf("%");
    if (zone >= 0) {
      if (!zoneAllowed || !/^[A-Za-z0-9_.-]+$/.test(s.slice(zone + 1))) return false;
      s = s.slice(0, zone);
    }
    if (!/^[0-9A-Fa-f:.]+$/.test(s)) return false;
    if (s.includes(".")) {
      const last = s.lastIndexOf(":");
      if (last < 0 || !isIpv4(s.slice(last + 1))) return false;
      s = s.slice(0, last + 1) + "0:0";
    }
    const halves = s.split("::");
    if (halves.length > 2) return false;
    const groups = (h) => (h === "" ? [] : h.split(":"));
    const all = groups(halves[0]).concat(halves.length === 2 ? groups(halves[1]) : []);
    if (!all.every((g) => /^[0-9A-Fa-f]{1,4}$/.test(g))) return false;
    return halves.length === 2 ? all.length <= 7 : all.length === 8;
  }

  // A mask written as a dotted mask or as a prefix length ("24" or "/24"), as a dotted mask.
  function maskOf(text) {
    const prefix = /^\/?([0-9]{1,2})$/.exec(text);
    if (prefix) {
      const n = Number(prefix[1]);
      if (n < 1 || n > 32) return null;
      const bits = n === 32 ? 0xffffffff : (0xffffffff << (32 - n)) >>> 0;
      return [24, 16, 8, 0].map((shift) => (bits >>> shift) & 255).join(".");
    }
    if (!isIpv4(text)) return null;
    const bits = ipv4Number(text);
    const inverted = (~bits) >>> 0;
    // Contiguous: the zero bits form one run at the low end, and at least one bit is set.
    return bits !== 0 && (inverted & (inverted + 1)) === 0 ? text : null;
  }

  function unicastIpv4Problem(text) {
    const first = Number(text.split(".")[0]);
    if (text === "0.0.0.0") return "0.0.0.0 is no host's address";
    if (text === "255.255.255.255") return "the broadcast address is no host's address";
    if (first >= 224 && first <= 239) return text + " is a multicast address";
    if (first >= 240) return text + " is a reserved address";
    return null;
  }

  const hostLabel = "[A-Za-z0-9](?:[A-Za-z0-9-]{0,61}[A-Za-z0-9])?";
  const HOSTNAME = new RegExp("^" + hostLabel + "$");
  const DOMAIN = new RegExp("^" + hostLabel + "(?:\\." + hostLabel + ")*\\.?$");

  // Each check answers [value to send, null] or [null, what is wrong].
  const CHECKS = {
    hostname: (v) => (HOSTNAME.test(v) ? [v, null] : [null, "a host name is letters, digits and inner hyphens, at most 63"]),
    domain: (v) => (v === "" || (v.length <= 253 && DOMAIN.test(v)) ? [v, null] : [null, "not a domain name"]),
    ipv4: (v) => {
      if (!isIpv4(v)) return [null, "not an IPv4 address (four numbers 0 to 255, such as 192.0.2.10)"];
      const problem = unicastIpv4Problem(v);
      return problem ? [null, problem] : [v, null];
    },
    gateway4: (v) => (v === "" ? [v, null] : CHECKS.ipv4(v)),
    dns4: (v) => (v === "" ? [v, null] : CHECKS.ipv4(v)),
    mask: (v) => {
      const mask = maskOf(v);
      return mask ? [mask, null] : [null, "not a subnet mask (such as 255.255.255.0, or a prefix length 1 to 32)"];
    },
    ipv6: (v) => (v === "" || isIpv6(v, false) ? [v, null] : [null, "not an IPv6 address (such as 2001:db8::10)"]),
    gateway6: (v) => (v === "" || isIpv6(v, true) ? [v, null] : [null, "not an IPv6 address (such as fe80::1)"]),
    prefix: (v) => (/^[0-9]{1,3}$/.test(v) && Number(v) >= 1 && Number(v) <= 128 ? [v, null] : [null, "a prefix length is 1 to 128"]),
  };

  // ---- The network panel ---------------------------------------------------------------

  // What the panel shows: the document as read, and one entry per editable setting.
  const net = { doc: null, fields: [], readonly: false };
  let fieldCount = 0;

  function adapterElement(doc, id) {
    for (const a of doc.getElementsByTagName("adapter")) if (a.getAttribute("id") === id) return a;
    return null;
  }

  // The element a setting belongs to, in `doc`: the root or the adapter with that id.
  function ownerIn(doc, adapterId) {
    return adapterId === null ? doc.documentElement : adapterElement(doc, adapterId);
  }

  function childElement(parent, name) {
    for (const c of parent.children) if (c.tagName === name) return c;
    return null;
  }

  function fieldBox(label, control, why, messageId) {
    const box = el("div", { class: "field" + (control.type === "checkbox" ? " inline" : "") + (why ? " readonly" : "") });
    const labelNode = el("label", { for: control.id, text: label });
    if (control.type === "checkbox") box.append(control, labelNode);
    else box.append(labelNode, control);
    if (why) {
      const whyId = control.id + "-why";
      box.append(el("span", { class: "why", id: whyId, text: why }));
      control.setAttribute("aria-describedby", whyId);
    }
    if (messageId) box.append(el("span", { class: "message error", id: messageId, role: "alert" }));
    return box;
  }

  // A text setting: checked on every keystroke; an invalid value is marked and blocks review.
  function textField(parent, where, adapterId, attr, label, kind, why) {
    const owner = ownerIn(net.doc, adapterId);
    if (!owner.hasAttribute(attr)) return null;
    const id = "net-" + (++fieldCount) + "-" + attr;
    const original = owner.getAttribute(attr) || "";
    const messageId = id + "-error";
    const input = el("input", { type: "text", id, value: original, autocomplete: "off", spellcheck: "false",
      "data-attr": attr, "data-error": messageId, disabled: Boolean(why) || net.readonly });
    parent.append(fieldBox(label, input, why, messageId));
    if (!input.hasAttribute("aria-describedby")) input.setAttribute("aria-describedby", messageId);
    const field = { where, adapterId, attr, label, input, original, kind, message: () => $(messageId) };
    field.check = () => checkField(field);
    input.addEventListener("input", field.check);
    net.fields.push(field);
    return field;
  }

  function checkField(field) {
    const value = field.input.value.trim();
    // What the host itself shows is never refused (an adapter that is down has no address).
    let [sendable, problem] = value === field.original ? [value, null] : CHECKS[field.kind](value);
    if (!problem && field.original !== "" && value === "" && (field.kind === "ipv4" || field.kind === "mask")) {
      problem = "a value is needed";
    }
    field.input.setAttribute("aria-invalid", problem ? "true" : "false");
    field.input.classList.toggle("changed", !problem && sendable !== field.original);
    show(field.message(), problem || "", "error");
    field.value = problem ? null : sendable;
    return !problem;
  }

  function boolField(parent, where, adapterId, attr, label, why) {
    const owner = ownerIn(net.doc, adapterId);
    if (!owner.hasAttribute(attr)) return null;
    const id = "net-" + (++fieldCount) + "-" + attr;
    const original = owner.getAttribute(attr) === "true";
    const input = el("input", { type: "checkbox", id, "data-attr": attr, disabled: Boolean(why) || net.readonly });
    input.checked = original;
    parent.append(fieldBox(label, input, why));
    const field = { where, adapterId, attr, label, input, original: String(original), kind: "bool" };
    field.check = () => {
      field.value = String(input.checked);
      input.classList.toggle("changed", field.value !== field.original);
      return true;
    };
    input.addEventListener("change", field.check);
    net.fields.push(field);
    return field;
  }

  // A list of DNS servers: one input per place the host reads, each checked like an address.
  function listField(parent, where, adapterId, listName, itemName, itemAttr, label, kind, why) {
    const owner = ownerIn(net.doc, adapterId);
    const list = childElement(owner, listName);
    if (!list) return null;
    const present = Array.from(list.children).map((c) => c.getAttribute(itemAttr) || "");
    const limit = Math.max(Number(list.getAttribute("limit")) || 3, present.length);
    const inputs = [];
    const group = el("div", { class: "list", role: "group", "aria-label": label });
    for (let i = 0; i < limit; i++) {
      const id = "net-" + (++fieldCount) + "-" + listName + "-" + i;
      const messageId = id + "-error";
      const input = el("input", { type: "text", id, value: present[i] || "", autocomplete: "off", spellcheck: "false",
        "data-list": listName, "data-index": String(i), "data-error": messageId, disabled: Boolean(why) || net.readonly });
      group.append(fieldBox(label + " " + (i + 1), input, i === 0 ? why : null, messageId));
      if (!input.hasAttribute("aria-describedby")) input.setAttribute("aria-describedby", messageId);
      inputs.push({ input, messageId });
    }
    parent.append(group);
    const field = { where, adapterId, listName, itemName, itemAttr, label, inputs, original: present.join(", "), kind };
    field.check = () => {
      let ok = true;
      const values = [];
      for (const { input, messageId } of inputs) {
        const [sendable, problem] = CHECKS[kind](input.value.trim());
        input.setAttribute("aria-invalid", problem ? "true" : "false");
        show($(messageId), problem || "", "error");
        if (problem) ok = false;
        else if (sendable !== "") values.push(sendable);
      }
      field.value = ok ? values.join(", ") : null;
      field.values = values;
      for (const { input } of inputs) input.classList.toggle("changed", ok && field.value !== field.original);
      return ok;
    };
    for (const { input } of inputs) input.addEventListener("input", field.check);
    net.fields.push(field);
    return field;
  }

  // Gateway, domain and DNS servers: at host level or per adapter, as the host keeps them.
  function addressingFields(parent, where, adapterId, why) {
    textField(parent, where, adapterId, "domain", "Domain", "domain", why);
    textField(parent, where, adapterId, "defaultGateway", "Default gateway", "gateway4", why);
    textField(parent, where, adapterId, "ipv6DefaultGateway", "IPv6 default gateway", "gateway6", why);
    listField(parent, where, adapterId, "dnsHosts", "dnsHost", "ipAddress", "DNS server", "dns4", why);
    listField(parent, where, adapterId, "ipv6DnsHosts", "ipv6DnsHost", "ipv6Address", "IPv6 DNS server", "ipv6", why);
  }

  function adapterCard(adapter, adapterLevel, ipv6Readonly) {
    const id = adapter.getAttribute("id");
    const where = "Adapter " + id;
    const card = el("fieldset", { class: "card adapter", "data-adapter": id });
    card.append(el("legend", { text: id }));
    const about = [adapter.getAttribute("desc"), adapter.getAttribute("macAddress")].filter(Boolean).join(" · ");
    if (about) card.append(el("p", { class: "about", text: about }));
    const body = el("div", { class: "grid" });
    card.append(body);
    const is = (name) => adapter.getAttribute(name) === "true";

    boolField(body, where, id, "enabled", "Enabled", is("canDisable") ? null : "This host cannot switch the adapter off.");
    const dhcpWhy = is("canUseDhcp") ? null : "DHCP is not available on this host.";
    if (adapter.hasAttribute("dhcpEnabled")) boolField(body, where, id, "dhcpEnabled", "Address from DHCP", dhcpWhy);
    else body.append(fieldBox("Address from DHCP", el("input", { type: "checkbox", id: "net-" + (++fieldCount) + "-dhcp", disabled: true }), dhcpWhy));
    const byDhcp = is("dhcpEnabled") ? "Set by DHCP while it is on." : null;
    textField(body, where, id, "ipAddress", "IPv4 address", "ipv4", byDhcp);
    textField(body, where, id, "subnetMask", "Subnet mask or prefix length", "mask", byDhcp);
    for (const [name, label] of [["dhcpHost", "DHCP server"], ["dhcpLeaseExpires", "Lease expires"]]) {
      if (adapter.hasAttribute(name)) body.append(el("p", { class: "about", text: label + ": " + adapter.getAttribute(name) }));
    }

    if (is("ipv6Supported")) {
      const v6why = ipv6Readonly ? "This host shows IPv6 settings but does not change them." : null;
      boolField(body, where, id, "ipv6Enabled", "IPv6 enabled", v6why || (is("canDisableIpv6") ? null : "This host cannot switch IPv6 off on the adapter."));
      textField(body, where, id, "ipv6Address", "IPv6 address", "ipv6", v6why);
      textField(body, where, id, "ipv6SubnetPrefixLength", "IPv6 prefix length", "prefix", v6why);
      if (adapter.hasAttribute("ipv6DhcpEnabled")) {
        boolField(body, where, id, "ipv6DhcpEnabled", "IPv6 address from DHCPv6", v6why || (is("canUseIpv6Dhcp") ? null : "DHCPv6 is not available on this host."));
      }
    } else {
      body.append(el("p", { class: "about", text: "No IPv6 on this adapter." }));
    }
    if (adapterLevel) addressingFields(body, where, id, null);
    return card;
  }

  function renderNetwork(doc) {
    net.doc = doc;
    net.fields = [];
    const root = doc.documentElement;
    net.readonly = root.getAttribute("isReadonly") === "true";
    const adapterLevel = root.getAttribute("usesAdapterLevelSettings") === "true";
    const ipv6Readonly = root.getAttribute("isIPv6Readonly") === "true";
    $("host-title").textContent = root.getAttribute("hostname") ? "on " + root.getAttribute("hostname") : "";

    const note = $("network-note");
    note.hidden = !net.readonly && !adapterLevel;
    note.textContent = net.readonly
      ? "This host's settings are read-only: the daemon shows them but cannot change them."
      : adapterLevel ? "This host keeps domain, gateways and DNS servers per adapter." : "";

    const host = $("host-body");
    host.replaceChildren();
    textField(host, "Host", null, "hostname", "Host name", "hostname", null);
    if (!adapterLevel) addressingFields(host, "Host", null, null);

    const cards = $("adapters");
    cards.replaceChildren();
    for (const adapter of doc.getElementsByTagName("adapter")) cards.append(adapterCard(adapter, adapterLevel, ipv6Readonly));
    for (const field of net.fields) field.check();
    $("network-review").disabled = net.readonly;
  }

  async function loadNetwork() {
    try {
      const { xml } = await call("GET", "/network");
      if (!xml || xml.documentElement.tagName !== "tcpIpSettings") throw new Error("the daemon's answer is no settings document");
      renderNetwork(xml);
      show($("network-error"), "", null);
    } catch (error) {
      show($("network-error"), describe(error), "error");
    }
  }

  // The settings that differ from what was read, each as [where, setting, now, after].
  function changes() {
    const out = [];
    for (const f of net.fields) {
      if (f.input && f.input.disabled) continue;
      if (f.inputs && f.inputs[0].input.disabled) continue;
      if (f.value !== f.original) out.push({ field: f, row: [f.where, f.label + (f.inputs ? "s" : ""), f.original, f.value] });
    }
    return out;
  }

  // The document to send: the one read, with only the changed settings rewritten, so that
  // everything the page does not show goes back to the host as it came.
  function documentWith(changed) {
    const doc = net.doc.cloneNode(true);
    for (const { field: f } of changed) {
      const owner = ownerIn(doc, f.adapterId);
      if (f.inputs) {
        const list = childElement(owner, f.listName);
        while (list.firstChild) list.removeChild(list.firstChild);
        for (const value of f.values) {
          const item = doc.createElementNS(null, f.itemName);
          item.setAttribute(f.itemAttr, value);
          list.append(item);
        }
      } else {
        owner.setAttribute(f.attr, f.value);
      }
    }
    return new XMLSerializer().serializeToString(doc);
  }

  let reviewed = null;

  $("network-form").addEventListener("submit", (event) => {
    event.preventDefault();
    const bad = net.fields.filter((f) => !f.check());
    if (bad.length) {
      show($("network-error"), "Correct the marked fields first: nothing has been sent.", "error");
      (bad[0].input || bad[0].inputs.find((i) => i.input.getAttribute("aria-invalid") === "true").input).focus();
      return;
    }
    show($("network-error"), "", null);
    reviewed = changes();
    const body = $("review-table").tBodies[0];
    body.replaceChildren();
    for (const { row } of reviewed) {
      body.append(el("tr", null, el("td", { text: row[0] }), el("td", { text: row[1] }),
        el("td", { class: "before", text: row[2] || "(none)" }), el("td", { class: "after", text: row[3] || "(none)" })));
    }
    const moved = reviewed.find(({ field: f }) => (f.attr === "ipAddress" || f.attr === "ipv6Address") &&
      f.original === location.hostname.replace(/^\[|\]$/g, ""));
    $("review-moves").hidden = !moved;
    $("review-moves").textContent = moved
      ? "This changes the address this page talks to (" + moved.field.original + "). Keep the confirmation window: " +
        "you will confirm at " + urlAt(moved.field) + "."
      : "";
    $("review-empty").hidden = reviewed.length > 0;
    $("review-table").hidden = reviewed.length === 0;
    $("review-apply").disabled = reviewed.length === 0;
    $("review-dialog").showModal();
  });

  $("review-window-on").addEventListener("change", () => {
    $("review-window").disabled = !$("review-window-on").checked;
  });

  $("review-form").addEventListener("submit", (event) => {
    if (event.submitter && event.submitter.value === "apply") {
      const seconds = Number($("review-window").value);
      const windowed = $("review-window-on").checked;
      if (windowed && !(Number.isInteger(seconds) && seconds >= 1 && seconds <= 3600)) {
        event.preventDefault();
        show($("review-window-error"), "1 to 3600 seconds", "error");
        $("review-window").focus();
        return;
      }
      show($("review-window-error"), "", null);
      apply(reviewed, windowed ? seconds : 0);
    }
  });

  // Where the page can still reach the host when the change moves the address it was opened
  // at: the adapter's new address, with the same port.
  function urlAt(f) {
    const port = location.port ? ":" + location.port : "";
    return "http://" + (f.attr === "ipv6Address" ? "[" + f.value + "]" : f.value) + port + "/";
  }

  function addressesAfter(changed) {
    const here = location.hostname.replace(/^\[|\]$/g, "");
    const moved = [];
    for (const { field: f } of changed) {
      if (f.attr !== "ipAddress" && f.attr !== "ipv6Address") continue;
      const url = urlAt(f);
      if (f.original === here) return [url];
      moved.push(url);
    }
    return moved;
  }

  function markCulprits(message) {
    for (const f of net.fields) {
      const inputs = f.inputs ? f.inputs.map((i) => i.input) : [f.input];
      for (const input of inputs) {
        const value = input.value.trim();
        if (value && message.includes(value) && !input.disabled) {
          input.setAttribute("aria-invalid", "true");
          show($(input.dataset.error), "The daemon refused this value (see below).", "error");
        }
      }
    }
  }

  async function apply(changed, seconds) {
    const text = documentWith(changed);
    const path = seconds ? "/network?confirmWithin=" + seconds : "/network";
    show($("network-result"), "Applying…", null);
    show($("network-error"), "", null);
    const sent = Date.now();  // the window runs from here, even if the answer never comes
    try {
      const { response, xml } = await call("POST", path, text, "application/xml");
      const id = response.headers.get("X-Change-Id");
      if (xml) renderNetwork(xml);
      if (seconds && id) {
        const within = Number(response.headers.get("X-Confirm-Within")) || seconds;
        show($("network-result"), "Applied. Check that the host still works, then confirm.", "ok");
        startPending(id, within, addressesAfter(changed), sent);
      } else if (seconds) {
        show($("network-result"), "Applied. This daemon offers no confirmation window, so the change stays.", "ok");
      } else {
        show($("network-result"), "Applied.", "ok");
      }
    } catch (error) {
      show($("network-result"), "", null);
      if (error instanceof Unreachable && seconds) {
        startPending(null, seconds, addressesAfter(changed), sent);
        return;
      }
      show($("network-error"), describe(error), "error");
      if (error instanceof DaemonError) markCulprits(error.message);
    }
  }

  // ---- Confirm or revert ---------------------------------------------------------------

  const pending = { id: null, deadline: 0, addresses: [], tick: null, poll: null, polling: false };

  function pendingShown(on) {
    $("pending").hidden = !on;
    if (!on) {
      clearInterval(pending.tick);
      clearInterval(pending.poll);
      pending.tick = pending.poll = null;
      pending.id = null;
    }
  }

  function startPending(id, seconds, addresses, since) {
    pending.id = id;
    pending.deadline = (since || Date.now()) + seconds * 1000;
    pending.addresses = addresses || [];
    $("pending-unreachable").hidden = true;
    pendingShown(true);
    $("pending-confirm").disabled = $("pending-revert").disabled = false;
    if (id === null) unreachable();
    updateCountdown();
    clearInterval(pending.tick);
    clearInterval(pending.poll);
    pending.tick = setInterval(updateCountdown, 250);
    pending.poll = setInterval(pollPending, PENDING_EVERY_MS);
    $("pending-confirm").focus();
  }

  function updateCountdown() {
    const left = Math.max(0, Math.ceil((pending.deadline - Date.now()) / 1000));
    const text = $("pending-text");
    text.replaceChildren(
      document.createTextNode((pending.id ? "Change " + pending.id : "The change") +
        " is applied. Unless you confirm it, the host takes it back in "),
      el("span", { class: "count", id: "pending-seconds", text: String(left) }),
      document.createTextNode(" s."));
  }

  function unreachable() {
    const where = pending.addresses;
    const box = $("pending-unreachable");
    box.hidden = false;
    box.textContent = where.length
      ? "The page cannot reach the daemon at " + location.host + " since the change. To keep the change, open " +
        where.join(" or ") + " and confirm it there before the time runs out; otherwise the host takes it back by itself."
      : "The page cannot reach the daemon at " + location.host + " since the change. If the host's address changed, open the page at its new address to confirm; otherwise the host takes the change back by itself.";
    $("pending-confirm").disabled = $("pending-revert").disabled = pending.id === null;
  }

  // The daemon's view of the waiting change wins over the page's own clock.
  async function pollPending() {
    if (pending.polling) return;
    pending.polling = true;
    try {
      const { xml } = await call("GET", "/network/pending");
      $("pending-unreachable").hidden = true;
      const waiting = xml && xml.documentElement.getAttribute("id");
      if (waiting && (pending.id === null || waiting === pending.id)) {
        pending.id = waiting;
        pending.deadline = Date.now() + Number(xml.documentElement.getAttribute("secondsLeft") || 0) * 1000;
        $("pending-confirm").disabled = $("pending-revert").disabled = false;
      } else if (pending.id !== null || Date.now() > pending.deadline) {
        pendingShown(false);
        show($("network-result"), "The change was not confirmed in time: the host has taken it back.", "error");
        await loadNetwork();
      }
    } catch (error) {
      if (error instanceof Unreachable) unreachable();
      else if (error instanceof DaemonError && error.status === 404) pendingShown(false);
    } finally {
      pending.polling = false;
    }
  }

  async function settle(action) {
    const id = pending.id;
    if (!id) return;
    $("pending-confirm").disabled = $("pending-revert").disabled = true;
    try {
      await call("POST", "/network/" + action + "?id=" + encodeURIComponent(id));
      pendingShown(false);
      if (action === "confirm") {
        show($("network-result"), "Confirmed: change " + id + " stays.", "ok");
      } else {
        show($("network-result"), "Reverted: the host is back to its settings before change " + id + ".", "ok");
      }
      await loadNetwork();
    } catch (error) {
      if (error instanceof DaemonError && error.status === 404) {
        pendingShown(false);
        show($("network-result"), "Change " + id + " is no longer waiting: the host has already taken it back (" + error.message + ").", "error");
        await loadNetwork();
      } else {
        show($("network-result"), describe(error), "error");
        $("pending-confirm").disabled = $("pending-revert").disabled = false;
      }
    }
  }

  $("pending-confirm").addEventListener("click", () => settle("confirm"));
  $("pending-revert").addEventListener("click", () => settle("revert"));
  $("network-reload").addEventListener("click", () => {
    show($("network-result"), "", null);
    loadNetwork();
  });

  // A change made from another address (or before a reload) is shown for confirmation here.
  async function adoptPending() {
    try {
      const { xml } = await call("GET", "/network/pending");
      const id = xml && xml.documentElement.getAttribute("id");
      if (id) startPending(id, Number(xml.documentElement.getAttribute("secondsLeft") || 0), []);
    } catch (error) {
      // No pending changes on this daemon (404) or none reachable: nothing to show.
    }
  }

  // ---- Write filter --------------------------------------------------------------------

  function drivesOf(text) {
    const letters = text.toUpperCase().replace(/[\s,:;]+/g, "");
    return /^[A-Z]+$/.test(letters) ? Array.from(new Set(letters)) : null;
  }

  function ramText(bytes) {
    const n = Number(bytes);
    if (!Number.isFinite(n)) return "-";
    if (n < 1024) return n + " bytes";
    const units = ["KB", "MB", "GB", "TB"];
    let v = n, u = -1;
    while (v >= 1024 && u < units.length - 1) { v /= 1024; u++; }
    return v.toFixed(1) + " " + units[u];
  }

  function commandName(value) {
    const known = FILTER_COMMANDS.find(([v]) => v === String(value));
    return known ? known[1] : "command " + value;
  }

  function filterRow(drive) {
    const select = el("select", { id: "wf-command-" + drive });
    for (const [value, name] of FILTER_COMMANDS) select.append(el("option", { value, text: name }));
    const set = el("button", { type: "button", text: "Set…", "aria-describedby": "wf-message-" + drive });
    const row = el("tr", { "data-drive": drive },
      el("th", { scope: "row", text: drive + ":" }),
      el("td", { class: "state", text: "…" }), el("td", { class: "command", text: "…" }), el("td", { class: "ram", text: "…" }),
      el("td", null, el("div", { class: "row" }, el("label", { for: select.id, class: "visually-hidden", text: "Boot command for " + drive + ":" }), select, set),
        el("span", { class: "message", id: "wf-message-" + drive, role: "status" })));
    set.addEventListener("click", () => askFilterCommand(drive, select.value, row));
    return row;
  }

  function fillFilterRow(row, xml) {
    const e = xml.documentElement;
    const state = e.getAttribute("state");
    row.querySelector(".state").textContent = FILTER_STATES[state] || "state " + state;
    row.querySelector(".command").textContent = commandName(e.getAttribute("command"));
    row.querySelector(".ram").textContent = ramText(e.getAttribute("ramUsage"));
  }

  function filterUnavailable(error) {
    const box = $("wf-unavailable");
    box.hidden = false;
    box.textContent = /not available on this system/i.test(error.message)
      ? error.message.charAt(0).toUpperCase() + error.message.slice(1)
      : "The write filter is not available on this system (the daemon says: " + error.message + ").";
    $("wf-table").hidden = true;
  }

  async function loadFilter() {
    const drives = drivesOf($("wf-drives").value);
    $("wf-drives").setAttribute("aria-invalid", drives ? "false" : "true");
    show($("wf-drives-error"), drives ? "" : "drive letters only, such as C or C D", "error");
    if (!drives) return;
    $("wf-unavailable").hidden = true;
    const body = $("wf-table").tBodies[0];
    body.replaceChildren();
    $("wf-table").hidden = false;
    for (const drive of drives) {
      const row = filterRow(drive);
      body.append(row);
      try {
        const { xml } = await call("GET", "/write-filter?drive=" + drive);
        fillFilterRow(row, xml);
      } catch (error) {
        if (error instanceof DaemonError && error.status === 503) {
          filterUnavailable(error);
          return;
        }
        for (const cell of row.querySelectorAll(".state, .command, .ram")) cell.textContent = "-";
        show($("wf-message-" + drive), describe(error), "error");
      }
    }
  }

  let filterAsk = null;

  function askFilterCommand(drive, command, row) {
    filterAsk = { drive, command, row };
    $("wf-dialog-text").textContent = "Set the boot command of drive " + drive + ": to \u201c" + commandName(command) + "\u201d?";
    // Escape closes the dialog without a value of its own and leaves the last one: clear
    // it, so that only the Set button sets.
    $("wf-dialog").returnValue = "";
    $("wf-dialog").showModal();
  }

  $("wf-dialog").addEventListener("close", async () => {
    const ask = filterAsk;
    filterAsk = null;
    if (!ask || $("wf-dialog").returnValue !== "set") return;
    const message = $("wf-message-" + ask.drive);
    try {
      const { xml } = await call("POST", "/write-filter?drive=" + ask.drive + "&command=" + ask.command);
      fillFilterRow(ask.row, xml);
      show(message, "Set: " + commandName(ask.command) + " at the next boot.", "ok");
    } catch (error) {
      show(message, describe(error), "error");
    }
  });

  $("wf-form").addEventListener("submit", (event) => {
    event.preventDefault();
    loadFilter();
  });

  // ---- Log levels ----------------------------------------------------------------------

  async function loadLevels() {
    try {
      const { xml } = await call("GET", "/levels");
      renderLevels(xml);
      show($("levels-error"), "", null);
    } catch (error) {
      show($("levels-error"), describe(error), "error");
    }
  }

  function renderLevels(xml) {
    const body = $("levels-table").tBodies[0];
    body.replaceChildren();
    let i = 0;
    for (const log of xml.getElementsByTagName("log")) {
      const name = log.getAttribute("name");
      const id = "level-" + i++;
      const select = el("select", { id, "data-name": name, "aria-describedby": id + "-message" });
      const level = log.getAttribute("level");
      for (const [value, label] of LEVELS) select.append(el("option", { value, text: value + " " + label, selected: value === level }));
      if (!LEVELS.some(([value]) => value === level)) select.append(el("option", { value: level, text: level, selected: true }));
      const message = el("span", { class: "message", id: id + "-message", role: "status" });
      select.addEventListener("change", () => setLevel(name, select, message, level));
      body.append(el("tr", null, el("th", { scope: "row" }, el("label", { for: id, text: name })), el("td", null, select), el("td", null, message)));
    }
  }

  async function setLevel(name, select, message, before) {
    const wanted = select.value;
    try {
      await call("POST", "/levels?name=" + encodeURIComponent(name) + "&level=" + encodeURIComponent(wanted));
      show(message, "saved", "ok");
    } catch (error) {
      select.value = before;
      show(message, describe(error), "error");
    }
  }

  // ---- Start ---------------------------------------------------------------------------

  function stopTimers() {
    clearInterval(statusTimer);
    statusTimer = null;
    pendingShown(false);
  }

  function start() {
    $("sign-in").hidden = true;
    $("panels").hidden = false;
    $("sign-out").hidden = false;
    show($("sign-in-error"), "", null);
    refreshStatus();
    clearInterval(statusTimer);
    statusTimer = setInterval(refreshStatus, STATUS_EVERY_MS);
    loadNetwork().then(adoptPending);
    loadFilter();
    loadLevels();
  }

  if (token) start();
  else signOut("");
})();
