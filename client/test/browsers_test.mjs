// What the client tells in real browsers, cause by cause, on a page that counts as public.
import assert from "node:assert/strict";
import { readFileSync, rmSync } from "node:fs";
import https from "node:https";
import { join } from "node:path";
import { after, before, describe, test } from "node:test";

import { Browser, isInstalled, makeCertificates, OTHER_HOST, PageServer } from "./browser.mjs";
import { closedPort, listen, Service } from "./service.mjs";

const PATIENCE = 3000;
const client = readFileSync(new URL("../marvique-client.js", import.meta.url));
const readme = readFileSync(new URL("../README.md", import.meta.url), "utf8");
const certificates = makeCertificates();
const service = new Service();
const pages = new PageServer(certificates, { "/marvique-client.js": ["text/javascript", client] });
const standIns = {};
const closed = [];
const table = [];

const diagnose = async (module, options) => {
  const began = performance.now();
  const { causes, health, asked } = await module.diagnose(options);
  return { causes: causes.map((cause) => cause.name), took: performance.now() - began, health, asked };
};
const allow = (...hosts) => service.set("AllowedOrigins", hosts.map((host) => pages.origin(host)).join(","));

/** A server that answers every page alike, plain and with a certificate that can be trusted. */
async function standIn(status, text) {
  const handler = (request, response) => response.writeHead(status, {
    "Access-Control-Allow-Origin": request.headers.origin ?? "null" }).end(text);
  const plain = await listen(handler);
  const secure = https.createServer(certificates, handler);
  await new Promise((resolve) => secure.listen(0, "127.0.0.1", resolve));
  return { ports: [plain.port], securePorts: [secure.address().port] };
}

before(async () => {
  await Promise.all([pages.listen(), service.start()]);
  standIns.user = await standIn(403, "This service belongs to another user of this machine.\n");
  standIns.old = await standIn(200, JSON.stringify({ modules: [], ports: [] }));
  standIns.silent = { ports: [(await listen(() => {})).port], securePorts: [] };
  closed.push(await closedPort(), await closedPort());
});
after(async () => {
  pages.close();
  await service.remove();
  rmSync(certificates.folder, { recursive: true });
  console.log("engine and state: condition: what the client names (ms)");
  for (const row of table) console.log(row);
  process.exit();  // the stand-ins still listen
});

/** Conditions: the ports that are asked, whether the page is listed. */
const both = () => ({ ports: [service.port], securePorts: [service.sslPort] });
const CONDITIONS = {
  running: [both],
  "closed ports": [() => ({ ports: [closed[0]], securePorts: [closed[1]] })],
  "origin not listed": [both, false],
  "another user": [() => standIns.user],
  "another user, and ours": [() => ({ ports: [...standIns.user.ports, service.port],
    securePorts: [...standIns.user.securePorts, service.sslPort] })],
  "too old": [() => standIns.old],
  silent: [() => standIns.silent],
  "secure port alone": [() => ({ ...both(), ports: [] })],
  "plain port alone": [() => ({ ...both(), securePorts: [] })],
};

/** For each engine in a state: what is named under each condition. [] says that it works. */
const usual = { running: [], "closed ports": ["not-running"], "origin not listed": ["origin-refused"],
  "another user": ["other-user"], "another user, and ours": [], "too old": ["too-old"], silent: ["not-running"],
  "plain port alone": [] };
const MATRIX = [
  ["chromium", "certificate trusted", { trusted: true }, { ...usual, "secure port alone": [] }],
  ["chromium", "certificate untrusted", {}, { "secure port alone": ["not-running", "certificate"], running: [] }],
  ["chromium", "permission denied", { permission: "denied", socketOpens: false },
    { running: ["permission"], "closed ports": ["permission"] }],
  ["chromium", "permission not asked yet, no window", { permission: "prompt" }, { running: ["permission"] }],
  ["chromium", "permission being asked", { permission: "prompt", shown: true }, { running: ["permission"] }],
  ["firefox", "certificate trusted", { trusted: true }, { ...usual, "secure port alone": [] }],
  ["firefox", "certificate untrusted", {}, { "secure port alone": ["certificate"], running: [] }],
  ["firefox", "permission denied", { permission: "denied", socketOpens: true },
    { running: ["permission"], "closed ports": ["permission"] }],
  ["firefox", "permission being asked", { permission: "prompt", socketOpens: true }, { running: [],
    "closed ports": ["not-running", "permission"], "origin not listed": ["permission", "origin-refused"] }],
  ["webkit", "certificate trusted", { trusted: true }, { ...usual, silent: undefined, "secure port alone": [],
    "closed ports": ["not-running", "certificate"], "plain port alone": ["mixed-content"] }],
  ["webkit", "certificate untrusted", {}, { running: ["not-running", "certificate"],
    "closed ports": ["not-running", "certificate"], "plain port alone": ["mixed-content"] }],
];

/** Whether a WebSocket opens, whatever the client makes of it. */
const opens = (_, address) => new Promise((resolve) => {
  const socket = new WebSocket(address);
  socket.onopen = () => resolve(true);
  socket.onclose = socket.onerror = () => resolve(false);
});

async function withBrowser(engine, state, use) {
  const trusted = [certificates.authority, ...(state.trusted ? [join(service.folder, "cert/server.pem")] : [])];
  const browser = new Browser(engine, pages, { ...state, trusted });
  try {
    await use(browser);
  } finally {
    await browser.close();
  }
}

for (const [engine, name, state, expected] of MATRIX) {
  test(`${engine}, ${name}`, { skip: !isInstalled(engine) && "it is not installed" }, () =>
    withBrowser(engine, state, async (browser) => {
      for (const [condition, causes] of Object.entries(expected)) {
        if (!causes) continue;
        const [options, listed = true] = CONDITIONS[condition];
        listed ? allow(undefined) : service.set("AllowedOrigins", "https://other.example");
        const told = await browser.run(diagnose, { ...options(), patience: PATIENCE });
        table.push(`${engine}, ${name}: ${condition}: ${told.causes.join(" or ") || "works"} (${told.took.toFixed()})`);
        assert.deepEqual(told.causes, causes, condition + " " + JSON.stringify(told.asked));
        assert.ok(told.took < 3 * PATIENCE, `${condition} took ${told.took} ms`);
      }
      if (state.socketOpens === undefined) return;
      allow(undefined);
      const isOpen = await browser.run(opens, `ws://127.0.0.1:${service.port}/qtp/`);
      table.push(`${engine}, ${name}: a WebSocket ${isOpen ? "opens" : "is refused"}`);
      assert.equal(isOpen, state.socketOpens);
    }));
}

describe("what a page does", () => {
  for (const engine of ["chromium", "firefox", "webkit"]) {
    test(`${engine}: the module comes from the service, commands and uploads work`,
      { skip: !isInstalled(engine) && "it is not installed" }, () =>
        withBrowser(engine, { trusted: true }, async (browser) => {
          service.set("ManageOrigins", pages.origin());
          const used = await browser.run(async (module, { options, base, archive }) => {
            // Others use this machine, too: the fastest of some tells what the client needs.
            let took = [], version;
            while (took.length < 5 || (Math.min(...took) >= 100 && took.length < 20)) {
              const began = performance.now();
              const own = await module.connect(options);
              version = (await own.qvVersion()).result[1];
              took.push(Math.round(performance.now() - began));
              own.close();
            }
            const { connect } = await import(base + "/client.js");
            const client = await connect(options);
            const progress = [];
            const bytes = Uint8Array.from(atob(archive), (c) => c.charCodeAt(0));
            const reply = await client.loadZipFromBytes(2, "", bytes, { onProgress: (sent) => progress.push(sent) });
            while (client.transport !== "websocket") await new Promise((resolve) => setTimeout(resolve, 20));
            const bad = await client.call("Nope", []).catch((error) => [error.kind, error.exception]);
            client.close();
            return { took, version, result: reply.result, progress: progress.at(-1), bad };
          }, { options: { ...both(), patience: PATIENCE }, archive: service.zip(300_000).toString("base64"),
            base: engine === "webkit" ? `https://localhost:${service.sslPort}` : `http://127.0.0.1:${service.port}` });
          service.set("ManageOrigins", "");
          table.push(`${engine}: first command over a fresh client: ${used.took} ms`);
          assert.deepEqual([used.version, used.result, used.bad], ["Marvique Service", [2, "", true], ["failed", -2200]]);
          assert.ok(used.progress > 300_000, `${used.progress} bytes`);
          assert.ok(Math.min(...used.took) < 100, `${used.took} ms`);
        }));
  }

  // In Chromium a frame needs to be let in by the page around it.
  for (const [engine, withoutAllow] of [["chromium", ["permission"]], ["firefox", []]]) {
    test(`${engine}: a page in a frame of another`, { skip: !isInstalled(engine) && "it is not installed" }, () =>
      withBrowser(engine, {}, async (browser) => {
        allow(undefined, OTHER_HOST);
        for (const [permit, causes] of [["", withoutAllow], ["loopback-network", []]]) {
          const page = `?${engine}${permit}`;
          await browser.run((_, frame) => {
            const element = document.createElement("iframe");
            Object.assign(element, frame);
            document.body.append(element);
          }, { allow: permit, src: `${pages.origin(OTHER_HOST)}/${page}` });
          const told = await browser.run(diagnose, { ...both(), patience: PATIENCE }, page);
          table.push(`${engine}, frame, allow="${permit}": ${told.causes.join(" or ") || "works"} (${told.took.toFixed()})`);
          assert.deepEqual(told.causes, causes);
        }
      }));
  }

  test("chromium: the page of README.md works as it stands",
    { skip: !isInstalled("chromium") && "it is not installed" }, () =>
      withBrowser("chromium", {}, async (browser) => {
        allow(undefined);
        const page = readme.match(/^```html\n(.*?)^```$/ms)[1];
        const asked = page.replace("connect()", `connect({ ports: [${service.port}] })`);
        assert.notEqual(asked, page);
        pages.files["/readme"] = ["text/html", asked];
        const text = await browser.run(async () => {
          const frame = document.createElement("iframe");
          frame.src = "/readme";
          document.body.append(frame);
          for (;;) {
            const out = frame.contentDocument?.getElementById("out")?.textContent ?? "asking";
            if (out !== "asking") return out;
            await new Promise((resolve) => setTimeout(resolve, 20));
          }
        });
        assert.equal(text, `${service.port} | Marvique Service Manager Module`);
      }));
});
