// The service under test in a folder of its own, and servers that stand for others on its ports.
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import { once } from "node:events";
import { copyFileSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import http from "node:http";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { setTimeout as pause } from "node:timers/promises";

const PATIENCE = 30_000;

/** Resolves with the first true result of a look. */
export async function until(look, what) {
  for (const end = Date.now() + PATIENCE; Date.now() < end; await pause(20)) {
    const result = await look();
    if (result) return result;
  }
  assert.fail("waited in vain until " + what);
}

export class Service {
  constructor(settings = "") {
    this.folder = mkdtempSync(join(tmpdir(), "qv_client_"));
    for (const name of ["marvique-service", process.env.QV_MODULE]) {
      copyFileSync(join(process.env.QV_BIN, name), join(this.folder, name));
    }
    writeFileSync(join(this.folder, "QVConfiguration.ini"), "[QV]\n" + settings);
  }

  /** Resolves when it listens, by default on ports that are free. */
  async start(port = 0, sslPort = 0) {
    const words = ["--port", String(port), "--ssl-port", String(sslPort)];
    this.process = spawn(join(this.folder, "marvique-service"), words, { stdio: ["ignore", "pipe", "inherit"] });
    let out = "";
    this.process.stdout.on("data", (data) => (out += data));
    const [plain, secure] = await until(() => {
      assert.equal(this.process.exitCode, null, "it ended early");
      const found = ["http", "https"].map((s) => out.match(`Listening on ${s}://127.0.0.1:(\\d+)`)?.[1]);
      return found.every(Boolean) && found.map(Number);
    }, "the service listens");
    Object.assign(this, { port: plain, sslPort: secure });
    return this;
  }

  async stop() {
    if (!this.process || this.process.exitCode !== null) return;
    const ended = once(this.process, "exit");
    this.process.kill("SIGTERM");
    const timer = setTimeout(() => this.process.kill("SIGKILL"), PATIENCE);
    await ended;
    clearTimeout(timer);
  }

  async remove() {
    await this.stop();
    rmSync(this.folder, { recursive: true });
  }

  /** Sets a key of section QV, in the file. */
  set(key, value) {
    const file = join(this.folder, "QVConfiguration.ini");
    const text = readFileSync(file, "utf8").replace(new RegExp(`^${key}=.*\n`, "m"), "");
    writeFileSync(file, text.replace("[QV]\n", `[QV]\n${key}=${value}\n`));
  }

  /** The bytes of a zip file with one certificate. */
  zip(bytes = 1000) {
    writeFileSync(join(this.folder, "mine.pem"), Buffer.alloc(bytes, "certificate"));
    execFileSync("zip", ["-q", "-0", "mine.zip", "mine.pem"], { cwd: this.folder });
    return readFileSync(join(this.folder, "mine.zip"));
  }
}

/** A server on a free port of loopback, closed with all its connections by `close`. */
export async function listen(handler, port = 0) {
  const server = http.createServer(handler);
  server.listen(port, "127.0.0.1");
  await once(server, "listening");
  const close = async () => {
    server.closeAllConnections();
    await new Promise((resolve) => server.close(resolve));
  };
  return { server, port: server.address().port, close };
}

/** A port on which nothing listens, for now. */
export async function closedPort() {
  const { port, close } = await listen(() => {});
  await close();
  return port;
}
