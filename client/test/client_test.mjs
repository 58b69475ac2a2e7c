// The client in Node, against the real service and against servers that misbehave.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import net from "node:net";
import { setTimeout as pause } from "node:timers/promises";
import { after, before, describe, test } from "node:test";
import { gzipSync } from "node:zlib";
import Socket, { WebSocketServer } from "ws";

import { connect, diagnose, ServiceError, version } from "../marvique-client.js";
import { closedPort, listen, Service, until } from "./service.mjs";

/** As README.md has it for Node. */
class WebSocket extends Socket {
  constructor(url) {
    super(url, { headers: { "User-Agent": "node" } });
  }
}
const HEALTH = { apiVersion: 1, modules: [], ports: [] };
const sends = (status, text) => (_, response) => response.writeHead(status).end(text);
const sendsJson = (value) => sends(200, JSON.stringify(value));
/** Rejected with a ServiceError of this kind; resolves with it. */
async function fails(promise, kind, more = {}) {
  const error = await promise.then(() => assert.fail("it was fulfilled"), (reason) => reason);
  assert.ok(error instanceof ServiceError, String(error));
  assert.deepEqual({ kind: error.kind, ...more }, { kind, ...Object.fromEntries(Object.keys(more).map((k) => [k, error[k]])) });
  return error;
}
const names = (causes) => causes.map((cause) => cause.name);

describe("with the service", () => {
  const service = new Service();
  const only = (more) => ({ ports: [service.port], securePorts: [], WebSocket, ...more });
  before(() => service.start());
  after(() => service.remove());

  for (const [transport, more] of [["websocket", {}], ["http", { WebSocket: null }]]) {
    test(`every command is answered by ${transport}, each to its own promise`, async () => {
      const client = await connect(only(more));
      await until(() => client.transport === transport, "the transport is in use");
      const port = String(service.port);
      const replies = await Promise.all([
        client.serverInfo(), client.localIP(), client.addFirewall(), client.mDNSService(),
        client.setmDNSQueryService(false, "", 0, 0, "", ""), client.mDNSQueryService(),
        client.checkHVNPort("", 1, "2"), client.changePort(), client.versionInfo(),
        client.qvVersion(), client.binaryFileInfo(), client.certExpiredDate(),
      ]);
      assert.equal(replies[0].qtp.port, port);
      assert.deepEqual(replies.slice(1, 8).map((reply) => reply.result ?? reply), [
        [], [false], [false, -1, "", "", 0, 0, 0], "", [false, "", 0, 0], [true], [true]]);
      assert.deepEqual(replies.slice(8, 10).map((reply) => reply.method), ["VersionInfo", "QVVersion"]);
      assert.equal(replies[10][0].name, "marvique-service");
      assert.match(replies[11][0], /^\d{4}-/);
      await fails(client.ports("12345"), "failed", { exception: -2408 });
      await fails(client.checkHVNPort("", [], []), "failed", { exception: -2201 });
      await fails(client.call("Nope", []), "failed", { exception: -2200 });
      assert.equal((await client.freshHealth()).apiVersion, 1);
      assert.ok(Array.isArray((await client.services()).services));
      client.close();
      await fails(client.serverInfo(), "closed");
    });
  }

  test("commands run in the order they were given, while the transport changes too", async () => {
    const client = await connect(only());
    const order = [], marks = [], replies = [];
    for (let mark = 0; mark < 40 || client.transport !== "websocket"; ++mark) {
      marks.push(mark);
      const reply = client.setmDNSService(true, String(mark), "", false, false, false, 0, false, "");
      replies.push(reply.then(() => order.push(mark)));
      if (mark % 5 === 0) await pause(1);
    }
    await Promise.all(replies);
    assert.deepEqual(order, marks);
    assert.equal((await client.mDNSService())[2], String(marks.at(-1)));
    await client.setmDNSService(false, "", "", false, false, false, 0, false, "");
    client.close();
  });

  test("an upload tells its progress and its outcome", async () => {
    const client = await connect(only());
    const archive = service.zip(200_000);
    const told = [];
    const reply = await client.loadZipFromBytes(2, "", archive, { onProgress: (...sent) => told.push(sent) });
    assert.deepEqual(reply.result, [2, "", true]);
    assert.deepEqual(told.at(-1), [archive.length, archive.length]);
    const error = await fails(client.loadZipFromBytes(2, "17.3", new Uint8Array(9)), "failed", { exception: -2405 });
    assert.match(error.message, /no zip archive/);
    await assert.rejects(client.loadZipFromBytes(2, "a&type=1", archive), TypeError);
    client.close();
  });

  test("the first command takes three round trips", async () => {
    const delay = 100;
    const proxy = net.createServer((inner) => {
      const outer = net.connect(service.port, "127.0.0.1");
      const here = String(proxy.address().port), there = String(service.port);
      for (const [from, to, rename] of [[inner, outer, [here, there]], [outer, inner]]) {
        from.on("data", (data) => setTimeout(() => {
          to.write(rename ? data.toString("latin1").replace("127.0.0.1:" + rename[0], "127.0.0.1:" + rename[1]) : data, "latin1");
        }, delay / 2));
        from.on("close", () => to.destroy()).on("error", () => {});
      }
    });
    await new Promise((resolve) => proxy.listen(0, "127.0.0.1", resolve));
    const began = performance.now();
    const client = await connect(only({ ports: [proxy.address().port] }));
    await client.serverInfo();
    const trips = 1 + Math.floor((performance.now() - began) / delay);  // and the one of TCP's own
    client.close();
    proxy.close();
    assert.equal(trips, 3);
    const direct = performance.now();
    const fresh = await connect(only());
    await fresh.serverInfo();
    const took = performance.now() - direct;
    fresh.close();
    console.log(`First command over a fresh client: ${took.toFixed(1)} ms`);
    assert.ok(took < 100, `${took} ms`);
  });

  test("a restart of the service is survived", async () => {
    const states = [];
    const client = await connect(only({ onState: (state) => states.push(state) }));
    await until(() => client.transport === "websocket", "the socket is open");
    await service.stop();
    await until(() => client.state === "reconnecting", "the loss is noticed");
    const asked = client.qvVersion();
    await service.start(service.port, service.sslPort);
    assert.equal((await asked).method, "QVVersion");
    client.close();
    assert.deepEqual(states, ["reconnecting", "open", "closed"]);
  });
});

describe("with what is not the service", () => {
  const cases = [
    ["nothing", null, ["not-running"]],
    ["another program", sends(200, "<h1>hello</h1>"), ["not-running"]],
    ["an older service", sendsJson({ ...HEALTH, apiVersion: undefined }), ["too-old"]],
    ["a refusal", sends(403, "The Host header must be there once."), ["origin-refused"]],
    ["another user", sends(403, "This service belongs to another user of this machine.\n"), ["other-user"]],
    ["silence", () => {}, ["not-running"]],
    ["a port that cannot be", null, ["not-running", "certificate"], { ports: [], securePorts: [99999] }],
  ];
  for (const [what, handler, expected, more] of cases) {
    test(`${what} is told as ${expected}`, async () => {
      const other = handler ? await listen(handler) : null;
      const options = { ports: [other?.port ?? await closedPort()], securePorts: [], patience: 1500, WebSocket, ...more };
      assert.deepEqual(names((await diagnose(options)).causes), expected);
      const error = await fails(connect(options), "connect");
      assert.deepEqual(names(error.causes), expected);
      await other?.close();
    });
  }

  test("an untrusted certificate is told, and another user's service passed over", async () => {
    const service = await new Service().start();
    const other = await listen(sends(403, "This service belongs to another user of this machine."));
    const secure = await diagnose({ ports: [], securePorts: [service.sslPort], WebSocket });
    assert.deepEqual(names(secure.causes), ["certificate"]);
    const client = await connect({ ports: [other.port, service.port], securePorts: [], WebSocket });
    assert.equal(client.url, `http://127.0.0.1:${service.port}`);
    client.close();
    await other.close();
    await service.remove();
  });
});

describe("with a server that misbehaves", () => {
  /** A client of a server that answers a WebSocket's messages as `reply` does. */
  async function withSocket(reply, use, more = {}) {
    const other = await listen(sendsJson(HEALTH));
    const sockets = new WebSocketServer({ server: other.server });
    sockets.on("connection", (socket) => {
      socket.on("message", (data) => reply(JSON.parse(data), (text) => socket.send(text), socket));
    });
    const client = await connect({ ports: [other.port], securePorts: [], WebSocket, ...more });
    await until(() => client.transport === "websocket", "the socket is open");
    await use(client).finally(async () => {
      client.close();
      for (const socket of sockets.clients) socket.terminate();
      await other.close();
    });
  }

  for (const text of ["", "{", "5", "null", '"text"', "<b>markup</b>", Buffer.from("[]")]) {
    test(`the reply ${JSON.stringify(String(text))} is a typed error`, () =>
      withSocket((_, send) => send(text), async (client) => {
        const error = await fails(client.serverInfo(), "reply");
        assert.equal(error.text, String(text));
      }));
  }

  test("a late reply is not taken for the next command's", async () => {
    const held = [];
    await withSocket((command, send) => {
      if (held.push(() => send(JSON.stringify([command.method]))) < 3) return;
      for (const answer of held.splice(0)) answer();
    }, async (client) => {
      await fails(client.call("GetLocalIP", [], { deadline: 50 }), "deadline");
      assert.deepEqual(await Promise.all([client.mDNSService(), client.binaryFileInfo()]),
        [["GetmDNSService"], ["GetBinaryFileInfo"]]);
    });
  });

  test("a command that is left out does not shift the others' replies", () =>
    withSocket(({ id, method }, send) => {
      if (method !== "Reboot") send(JSON.stringify({ id, method, result: [true], cmdId: "" }));
    }, async (client) => {
      const left = fails(client.reboot(), "closed");
      assert.equal((await client.changePort()).method, "ChangePort");
      await left;
    }));

  test("a connection that ends rejects what it was asked, and a close ends the waiting", () =>
    withSocket((_, __, socket) => socket.terminate(), async (client) => {
      await fails(client.serverInfo(), "closed");
      const waiting = fails(client.serverInfo(), "closed");
      client.close();
      await waiting;
    }));

  test("a close ends what is under way by HTTP", async () => {
    const other = await listen((request, response) => request.method === "GET" && sendsJson(HEALTH)(request, response));
    const client = await connect({ ports: [other.port], securePorts: [], WebSocket: null });
    const asked = [client.reboot(), client.qvVersion(), client.loadZipFromBytes(2, "", new Uint8Array(9))]
      .map((promise) => fails(promise, "closed"));
    await pause(50);
    client.close();
    await Promise.all(asked);
    await fails(client.loadZipFromBytes(2, "", new Uint8Array(9)), "closed");
    await other.close();
  });

  for (const [status, kind, exception] of [[403, "failed", -2205], [503, "refused", undefined]]) {
    test(`the status ${status} and its sentence are told`, async () => {
      const other = await listen((request, response) =>
        (request.method === "GET" ? sendsJson(HEALTH) : sends(status, "A sentence.\n"))(request, response));
      const client = await connect({ ports: [other.port], securePorts: [], WebSocket: null });
      await fails(client.reboot(), kind, { status, exception, message: "A sentence." });
      client.close();
      await other.close();
    });
  }
});

test("the module is small and tells one version", () => {
  const file = (name) => readFileSync(new URL("../" + name, import.meta.url), "utf8");
  const source = file("marvique-client.js");
  const size = gzipSync(source).length;
  console.log(`marvique-client.js: ${source.length} bytes, ${size} compressed`);
  assert.ok(size < 12 * 1024);
  assert.ok(!/^import\s/m.test(source), "it needs nothing");
  const project = file("../CMakeLists.txt").match(/project\(\S+ VERSION (\S+)/)[1];
  assert.deepEqual([version, JSON.parse(file("package.json")).version, source.match(/marvique-client (\S+),/)[1]],
    [project, project, project]);
});
