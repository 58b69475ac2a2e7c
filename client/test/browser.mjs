// Real browsers on a page that counts as public, and code that runs in that page. Needs a network
// namespace of its own (see in_namespace): nothing leaves it, and all processes end with it.
import { execFileSync, spawn } from "node:child_process";
import { once } from "node:events";
import { existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import https from "node:https";
import { tmpdir } from "node:os";
import { join } from "node:path";

/** Addresses for documentation (RFC 5737), which the namespace's loopback has: to a browser public. */
export const HOST = "203.0.113.7", OTHER_HOST = "203.0.113.8";
const BLOCKED = { prompt: 0, granted: 1, denied: 2 };
const MINI_BROWSER = `/usr/lib/${process.arch === "arm64" ? "aarch64" : "x86_64"}-linux-gnu/webkit2gtk-4.1/MiniBrowser`;
const PROGRAMS = { chromium: "/usr/bin/chromium", firefox: "/usr/bin/firefox-esr", webkit: MINI_BROWSER };

export const isInstalled = (engine) => existsSync(PROGRAMS[engine]);
const sh = (...words) => execFileSync(words[0], words.slice(1), { stdio: ["ignore", "pipe", "pipe"] });

/** A certificate authority of the test's own, and a certificate of it for pages and stand-ins. */
export function makeCertificates() {
  const folder = mkdtempSync(join(tmpdir(), "qv_browser_"));
  const at = (name) => join(folder, name);
  const newKey = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2"];
  writeFileSync(at("names"), `subjectAltName=IP:${HOST},IP:${OTHER_HOST},DNS:localhost\n`);
  sh("openssl", "req", "-x509", ...newKey, "-subj", "/CN=Test CA", "-keyout", at("ca.key"), "-out", at("ca.pem"),
    "-addext", "basicConstraints=critical,CA:TRUE");
  sh("openssl", "req", ...newKey.slice(0, -2), "-subj", "/CN=page", "-keyout", at("key"), "-out", at("csr"));
  sh("openssl", "x509", "-req", "-in", at("csr"), "-CA", at("ca.pem"), "-CAkey", at("ca.key"), "-CAcreateserial",
    "-days", "2", "-extfile", at("names"), "-out", at("pem"));
  return { folder, authority: at("ca.pem"), key: readFileSync(at("key")), cert: readFileSync(at("pem")) };
}

/** Serves the page, gives it code to run and takes the results. */
export class PageServer {
  #queues = new Map();

  constructor(certificates, files) {
    this.files = { "/": ["text/html", PAGE], ...files };
    this.server = https.createServer(certificates, (request, response) => this.#serve(request, response));
  }

  async listen() {
    await new Promise((resolve) => this.server.listen(0, "0.0.0.0", resolve));
    this.port = this.server.address().port;
    return this;
  }

  close() {
    this.server.closeAllConnections();
    this.server.close();
  }

  origin(host = HOST) {
    return `https://${host}:${this.port}`;
  }

  /** Runs a function in a page and resolves with its result; rejects with its error's text. */
  run(page, code, argument) {
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => reject(new Error(`the page ${page} gave no answer`)), 20_000);
      const done = ({ value, error }) => {
        clearTimeout(timer);
        error ? reject(new Error(error)) : resolve(value);
      };
      const queue = this.#queue(page);
      queue.jobs.push({ text: JSON.stringify({ code: String(code), argument }), done });
      this.#hand(queue);
    });
  }

  #queue(page) {
    if (!this.#queues.has(page)) this.#queues.set(page, { jobs: [], waiting: null, running: null });
    return this.#queues.get(page);
  }

  #hand(queue) {
    if (!queue.waiting || queue.jobs.length === 0) return;
    queue.running = queue.jobs.shift();
    queue.waiting.end(queue.running.text);
    queue.waiting = null;
  }

  #serve(request, response) {
    const { pathname, search } = new URL(request.url, "https://page");
    const queue = this.#queue(search);
    if (pathname === "/job") {
      queue.waiting = response;
      this.#hand(queue);
    } else if (pathname === "/done") {
      let text = "";
      request.on("data", (data) => (text += data)).on("end", () => {
        response.end();
        queue.running?.done(JSON.parse(text));
      });
    } else {
      const [type, content] = this.files[pathname] ?? ["text/plain", "nothing"];
      response.writeHead(this.files[pathname] ? 200 : 404, { "Content-Type": type }).end(content);
    }
  }
}

const PAGE = `<!DOCTYPE html><title>page</title><script type="module">
  for (;;) {
    const job = await (await fetch("/job" + location.search)).json();
    let result;
    try {
      const client = await import("/marvique-client.js");
      result = { value: (await eval("(" + job.code + ")")(client, job.argument)) ?? null };
    } catch (error) {
      result = { error: String(error) };
    }
    await fetch("/done" + location.search, { method: "POST", body: JSON.stringify(result) });
  }
</script>`;

/** The processes are ended by their ids, with all that they started when the namespace ends. */
export class Browser {
  static #count = 0;

  /** `permission` is prompt, granted or denied; `trusted` certificates are imported. */
  constructor(engine, server, { permission = "granted", trusted = [], shown = false } = {}) {
    this.server = server;
    this.home = mkdtempSync(join(tmpdir(), "qv_home_"));
    this.profile = join(this.home, "profile");
    mkdirSync(this.profile);
    this.environment = { ...process.env, HOME: this.home };
    this.processes = [];
    this.page = "?" + ++Browser.#count;
    this[engine](server.origin() + "/" + this.page, BLOCKED[permission], trusted, shown);
  }

  run(code, argument, page = this.page) {
    return this.server.run(page, code, argument);
  }

  async close() {
    for (const child of this.processes.reverse()) {
      if (child.exitCode !== null) continue;
      const ended = once(child, "exit");
      // Each is the first of a group, with all that it started. A display may remove its lock file.
      process.kill(-child.pid, child.spawnfile.endsWith("Xvfb") ? "SIGTERM" : "SIGKILL");
      await ended;
    }
    if (this.mounted) sh("umount", "--lazy", this.mounted);
    rmSync(this.home, { recursive: true, force: true, maxRetries: 20, retryDelay: 100 });
  }

  start(program, ...words) {
    const options = { env: this.environment, detached: true,
      stdio: process.env.QV_SHOW ? "inherit" : "ignore" };
    this.processes.push(spawn(program, words, options));
  }

  trust(folder, trusted) {
    mkdirSync(folder, { recursive: true });
    sh("certutil", "-d", "sql:" + folder, "-N", "--empty-password");
    for (const [i, file] of trusted.entries()) {
      sh("certutil", "-d", "sql:" + folder, "-A", "-n", "c" + i, "-t", "CP,,", "-i", file);
    }
  }

  display() {
    this.environment.DISPLAY = ":" + (10 + Browser.#count + this.server.port % 10_000);
    this.start("/usr/bin/Xvfb", this.environment.DISPLAY, "-nolisten", "tcp");
    sh("sh", "-c", `for i in $(seq 100); do [ -e /tmp/.X11-unix/X${this.environment.DISPLAY.slice(1)} ] && exit; sleep 0.05; done`);
  }

  chromium(address, setting, trusted, shown) {
    this.trust(join(this.home, ".pki/nssdb"), trusted);
    if (setting) {
      const exceptions = { [this.server.origin() + ",*"]: { setting }, [this.server.origin(OTHER_HOST) + ",*"]: { setting } };
      mkdirSync(join(this.profile, "Default"));
      writeFileSync(join(this.profile, "Default/Preferences"), JSON.stringify({
        profile: { content_settings: { exceptions: { loopback_network: exceptions } } } }));
    }
    if (shown) this.display();
    const spaces = [HOST, OTHER_HOST].map((host) => `${host}:${this.server.port}=public`);
    this.start(PROGRAMS.chromium, ...(shown ? [] : ["--headless=new"]), "--no-sandbox", "--disable-gpu", "--no-first-run",
      "--disable-background-networking", "--disable-component-update", "--disable-sync",
      "--user-data-dir=" + this.profile, "--ip-address-space-overrides=" + spaces.join(","), address);
  }

  firefox(address, setting, trusted) {
    this.trust(this.profile, trusted);
    const permissions = join(this.home, "permissions");
    const line = (host) => `origin\tloopback-network\t${setting}\t${this.server.origin(host)}\n`;
    writeFileSync(permissions, setting ? line(HOST) + line(OTHER_HOST) : "");
    const preferences = {
      "network.lna.address_space.public.override": [HOST, OTHER_HOST].map((h) => `${h}:${this.server.port}`).join(","),
      "permissions.manager.defaultsUrl": "file://" + permissions,
      "datareporting.policy.dataSubmissionEnabled": false,
    };
    writeFileSync(join(this.profile, "user.js"), Object.entries(preferences)
      .map(([key, value]) => `user_pref("${key}", ${JSON.stringify(value)});\n`).join(""));
    this.start(PROGRAMS.firefox, "--headless", "--no-remote", "--profile", this.profile, address);
  }

  webkit(address, _, trusted) {
    const all = join(this.home, "all.pem"), system = "/etc/ssl/certs/ca-certificates.crt";
    writeFileSync(all, trusted.map((file) => readFileSync(file, "utf8")).join(""));
    sh("mount", "--bind", all, system); // in this namespace alone
    this.mounted = system;
    this.display();
    this.environment.WEBKIT_DISABLE_COMPOSITING_MODE = "1";
    this.start("/usr/bin/dbus-run-session", "--", PROGRAMS.webkit, address);
  }
}
