/*! marvique-client 17.3.0, MIT */
// Finds the service on this machine, sends it commands, and says why when that does not work. For
// pages and for Node; README.md shows how. Every promise that is made here ends.

/** @import { Commands, Health, Services } from "./commands.js" */
/** @import * as Types from "./types.js" */

export const version = "17.3.0";

/** The contract (docs/commands.schema.json) that this client is written for. */
const API_VERSION = 1;

/**
 * Why there is no connection, with the sentence that a page can show.
 * @type {Readonly<Record<Types.Cause, string>>}
 */
const SENTENCES = {
  "not-running":
    "The service does not run on this machine, or it listens on other ports than those asked.",
  permission:
    "The browser does not let this page reach programs on this machine. Allow this page access to " +
    "apps and services on this device (the local network), then try again.",
  "origin-refused":
    "The service runs, but does not know this page: the operator has to list the page's origin in " +
    "AllowedOrigins.",
  "other-user": "The service that runs here belongs to another user of this machine.",
  certificate:
    "The browser does not trust the service's certificate: it has to be imported as trusted.",
  "mixed-content":
    "This browser lets a page on https reach the service by its secure port only, and none was asked.",
  "too-old": "The service is older than this page needs: it has to be updated.",
};

/** The typed methods and their commands. LoadZipFromBytes has a method of its own. */
const METHODS = /** @type {const} */ ({
  serverInfo: "GetServerInfo",
  setServerInfo: "SetServerInfo",
  reboot: "Reboot",
  ports: "GetPorts",
  checkHVNPort: "CheckHVNPort",
  changePort: "ChangePort",
  addFirewall: "AddFirewall",
  localIP: "GetLocalIP",
  versionInfo: "VersionInfo",
  qvVersion: "QVVersion",
  certExpiredDate: "GetCertExpiredDate",
  binaryFileInfo: "GetBinaryFileInfo",
  setmDNSQueryService: "SetmDNSQueryService",
  mDNSQueryService: "GetmDNSQueryService",
  setmDNSService: "SetmDNSService",
  mDNSService: "GetmDNSService",
  checkUpdateFile: "CheckUpdateFile",
});

/** Commands that are answered with an empty text, and those that answer {} to wrong types. */
const EMPTY = ["SetmDNSQueryService", "SetmDNSService"];
const BRACES = ["CheckHVNPort", "SetServerInfo"];
/** Commands that unpack archives. */
const LONG = ["CheckUpdateFile", "LoadZipFromBytes"];

/**
 * @typedef {{ [K in keyof typeof METHODS]: (...parameter:
 *     Commands[(typeof METHODS)[K]]["parameter"]) => Promise<Commands[(typeof METHODS)[K]]["reply"]>
 *   }} Methods
 * @typedef {ServiceClient & Methods} Service
 *
 * @typedef {object} Entry A command that has no reply yet.
 * @property {string} id
 * @property {string} method
 * @property {string} text
 * @property {AbortController} ended Aborted as soon as the promise is settled.
 * @property {(text: unknown) => void} take
 * @property {(error: ServiceError) => void} fail
 */

/**
 * What every failed promise of this module is rejected with. `kind` tells what happened:
 * `connect` (see `causes`), `failed` (the reply has an `exception`), `refused` (an HTTP `status` and
 * its `text`), `reply` (the `text` is no reply), `deadline`, and `closed` (the connection ended: the
 * command may have run, or not).
 */
export class ServiceError extends Error {
  /**
   * @param {Types.ErrorKind} kind
   * @param {string} message
   * @param {{ causes?: Types.NamedCause[], asked?: Types.Asked[], exception?: number, status?: number,
   *     text?: string }} [details]
   */
  constructor(kind, message, details = {}) {
    super(message);
    this.name = "ServiceError";
    this.kind = kind;
    this.causes = details.causes ?? [];
    this.asked = details.asked ?? [];
    this.exception = details.exception;
    this.status = details.status;
    this.text = details.text;
  }
}

/**
 * @param {number} milliseconds @param {AbortSignal} [signal] Ends the pause early.
 * @returns {Promise<undefined>}
 */
function pause(milliseconds, signal) {
  return new Promise((resolve) => {
    const end = () => {
      clearTimeout(timer);
      signal?.removeEventListener("abort", end);
      resolve(undefined);
    };
    const timer = setTimeout(end, milliseconds);
    signal?.addEventListener("abort", end);
  });
}

/** @param {unknown} text @returns {any} Undefined for what is no JSON. */
function parse(text) {
  try {
    return typeof text === "string" ? JSON.parse(text) : undefined;
  } catch {
    return undefined;
  }
}

/** Null where there is no WebSocket, or the engine refuses to make it. @param {Settings} settings @param {string} url */
function openSocket(settings, url) {
  try {
    return settings.WebSocket && new settings.WebSocket(url.replace("http", "ws") + "/qtp/");
  } catch {
    return null;
  }
}

/** @param {Types.Options} options */
function complete(options) {
  const native = globalThis.WebSocket ?? null;
  return {
    ports: options.ports ?? [18625, 18635, 18645],
    securePorts: options.securePorts ?? [18626, 18636, 18646],
    patience: options.patience ?? 10_000,
    deadline: options.deadline ?? 30_000,
    longDeadline: options.longDeadline ?? 600_000,
    onState: options.onState ?? (() => {}),
    WebSocket: options.WebSocket === undefined ? native : options.WebSocket,
  };
}

/** @typedef {ReturnType<typeof complete>} Settings */

/** @param {number} status @param {string} text @returns {Pick<Types.Asked, "answer" | "health">} */
function judge(status, text) {
  if (status === 403) return { answer: /another user/.test(text) ? "other-user" : "origin-refused" };
  const health = parse(text);
  if (!Array.isArray(health?.modules) || !Array.isArray(health.ports)) return { answer: "foreign" };
  return { answer: health.apiVersion >= API_VERSION ? "ok" : "too-old", health };
}

/** Asks one address how it is and notes the answer. @param {Types.Asked} one @param {AbortSignal} signal */
async function ask(one, signal) {
  const how = /** @type {const} */ ({ cache: "no-store", credentials: "omit", signal });
  const url = one.url + "/health";
  try {
    const response = await fetch(url, how);
    const answer = judge(response.status, await response.text());
    if (one.answer === "pending") Object.assign(one, answer);
  } catch (error) {
    // Node tells; browsers do not.
    if (/CERT|SIGNED/.test(/** @type {any} */ (error)?.cause?.code)) one.untrusted = true;
    // A closed port and an answer that this page may not read look alike; only the first of them
    // fails here, too.
    try {
      if (!signal.aborted) await fetch(url, { ...how, mode: "no-cors" });
      if (!signal.aborted && one.answer === "pending") one.answer = "opaque";
    } catch {
      if (!signal.aborted && one.answer === "pending") one.answer = "failed";
    }
  }
}

/**
 * Opens a WebSocket and asks who is there. Resolves with it, or with null after noting how it closed.
 * @param {Types.Asked} one @param {Settings} settings @param {AbortSignal} signal
 * @returns {Promise<WebSocket | null>}
 */
function askBySocket(one, settings, signal) {
  return new Promise((resolve) => {
    const socket = signal.aborted ? null : openSocket(settings, one.url);
    if (!socket) return resolve(null);
    const giveUp = () => (socket.close(), resolve(null));
    signal.addEventListener("abort", giveUp);
    socket.onopen = () => socket.send('{"id":"who","method":"QVVersion","parameter":[]}');
    socket.onmessage = ({ data }) => {
      signal.removeEventListener("abort", giveUp);
      if (parse(data)?.method !== "QVVersion") return giveUp();
      one.answer = "ok";
      resolve(socket);
    };
    socket.onclose = ({ code }) => {
      if (code === 1015) one.untrusted = true; // RFC 6455, 7.4.1: the TLS handshake failed
      else one.socketClosed = true;
      resolve(null);
    };
    // An engine may leave out the close event; where there is one it comes right behind.
    socket.onerror = () => void pause(500, signal).then(() => resolve(null));
  });
}

/**
 * Asks all addresses at once, until the first good answer or until each has told what it can.
 * @param {Settings} settings @param {Promise<string | undefined>} permission
 * @returns {Promise<{ found: Types.Asked | null, socket: WebSocket | null, asked: Types.Asked[] }>}
 */
async function search(settings, permission) {
  const hesitation = 700; // milliseconds; the service answers within some
  const ended = new AbortController();
  const timer = setTimeout(() => ended.abort(), settings.patience);
  /** @type {Types.Asked[]} */
  const asked = [
    ...settings.ports.map((port) => ({ url: `http://127.0.0.1:${port}`, secure: false })),
    ...settings.securePorts.map((port) => ({ url: `https://localhost:${port}`, secure: true })),
  ].map((address) => ({ ...address, answer: "pending" }));

  /** @param {Types.Asked} one */
  const attempt = async (one) => {
    const answered = ask(one, ended.signal).then(() => null);
    await Promise.race([answered, pause(hesitation, ended.signal)]);
    let socket = null;
    // While a browser asks its user it holds fetch back, or lets it fail; in some of them a WebSocket
    // gets through.
    const isHeld = one.answer === "pending";
    if (isHeld || (one.answer === "failed" && (await permission) === "prompt")) {
      const opening = askBySocket(one, settings, ended.signal);
      socket = await (isHeld ? Promise.race([answered, opening]) : opening);
      if (one.answer === "pending") await answered;
    }
    if (one.answer !== "ok") throw one;
    return { found: one, socket };
  };
  const attempts = asked.map(attempt);
  try {
    const first = await Promise.any(attempts);
    for (const other of attempts) {
      other.then(({ socket }) => socket !== first.socket && socket?.close(), () => {});
    }
    return { ...first, asked };
  } catch {
    return { found: null, socket: null, asked };
  } finally {
    clearTimeout(timer);
    ended.abort();
  }
}

/**
 * The search, and once more when the user answered the browser's question meanwhile.
 * @param {Settings} settings
 */
async function find(settings) {
  const permission = permissionState();
  const result = await search(settings, permission);
  if (result.found || (await permission) !== "prompt") return result;
  return (await permissionState()) === "granted" ? search(settings, permissionState()) : result;
}

/** The browser's permission to reach this machine, undefined where there is none. */
async function permissionState() {
  const { location, navigator, document } = globalThis;
  if (/^(localhost|.*\.localhost|127\.[\d.]+|\[::1\])$/.test(location?.hostname ?? "")) return undefined;
  const names = ["loopback-network", "local-network-access"];
  // @ts-expect-error: not all engines have it.
  const policy = document?.featurePolicy;
  if (policy?.features().includes(names[0]) && !policy.allowsFeature(names[0])) return "denied";
  for (const name of names) {
    try {
      const query = navigator.permissions.query({ name: /** @type {PermissionName} */ (name) });
      return (await Promise.race([query, pause(1000)]))?.state;
    } catch {}
  }
  return undefined;
}

/** Why none of the addresses is good. @param {Types.Asked[]} asked @param {Settings} settings */
async function explain(asked, settings) {
  /** @param {Types.Asked["answer"]} answer */
  const told = (answer) => asked.some((one) => one.answer === answer);
  /** @param {Types.Cause[]} names @returns {Types.NamedCause[]} */
  const named = (...names) => names.map((name) => ({ name, sentence: SENTENCES[name] }));

  if (told("too-old")) return named("too-old");
  if (told("origin-refused")) return named("origin-refused");
  if (told("opaque")) return named("origin-refused");
  if (told("other-user")) return named("other-user");

  const { location, navigator } = globalThis;
  const permission = await permissionState();
  const mayLack = permission === "prompt" || permission === "denied";
  if (told("pending") && mayLack) {
    // Firefox asks for fetch alone: there it was the service that closed a WebSocket.
    const isClosed = asked.some((one) => one.socketClosed);
    return isClosed && navigator.vendor === "" ? named("permission", "origin-refused") : named("permission");
  }

  if (permission === "denied") return named("permission");
  const secure = asked.filter((one) => one.secure);
  const limit = AbortSignal.timeout(3000);
  await Promise.all(secure.map((one) => askBySocket(one, settings, limit))).then((sockets) => {
    for (const socket of sockets) socket?.close();
  });
  if (secure.some((one) => one.untrusted)) return named("certificate");

  const plainIsBlocked = location?.protocol === "https:" && /^Apple/.test(navigator.vendor);
  if (plainIsBlocked && secure.length === 0) return named("mixed-content");
  /** @type {Types.Cause[]} */
  const list = ["not-running"];
  if (permission === "prompt") list.push("permission");
  if (plainIsBlocked || secure.length === asked.length) list.push("certificate");
  return named(...list);
}

/** A connection to the service, made by `connect`. */
class ServiceClient {
  /** @type {Settings} */ #settings;
  /** @type {string} */ #url = "";
  /** @type {Health | null} */ #health = null;
  /** @type {WebSocket | null} */ #socket = null;
  /** @type {Types.State} */ #state = "open";
  /** @type {Entry[]} Sent by the socket and not answered, in their order. */ #open = [];
  /** Commands are sent one behind the other. */ #turn = Promise.resolve();
  /** Ends when the service is found again. */ #ready = Promise.resolve();
  #closed = new AbortController();
  #count = 0;

  /** @param {Settings} settings @param {Types.Asked} found @param {WebSocket | null} socket */
  constructor(settings, found, socket) {
    this.#settings = settings;
    this.#use(found, socket);
  }

  /** Where the service is, such as http://127.0.0.1:18625 */
  get url() {
    return this.#url;
  }
  /** What the service said of itself when it was found; null where only a WebSocket got through. */
  get health() {
    return this.#health;
  }
  get state() {
    return this.#state;
  }
  /** How the next command is sent. @returns {"websocket" | "http"} */
  get transport() {
    return this.#socket?.readyState === 1 ? "websocket" : "http";
  }

  /**
   * Sends a command and resolves with its reply.
   * @template {Exclude<keyof Commands, "LoadZipFromBytes">} M
   * @param {M} method
   * @param {Commands[M]["parameter"]} parameter
   * @param {Types.CallOptions} [options]
   * @returns {Promise<Commands[M]["reply"]>}
   */
  call(method, parameter, options = {}) {
    return this.#promise(method, parameter, options, (entry) => {
      this.#turn = this.#turn.then(() => this.#send(entry));
    });
  }

  /**
   * Uploads a zip file: kind 1 is a service update, 2 certificates, any other module files.
   * @param {number} kind
   * @param {string} version
   * @param {Blob | ArrayBuffer | Uint8Array<ArrayBuffer>} archive
   * @param {Types.UploadOptions} [options]
   * @returns {Promise<Commands["LoadZipFromBytes"]["reply"]>}
   */
  loadZipFromBytes(kind, version, archive, { deadline, onProgress } = {}) {
    // The version stands in the path as it is.
    if (!/^[\w.,-]*$/.test(version)) return Promise.reject(new TypeError("No version: " + version));
    const path = `/LoadZipFromBytes?type=${Number(kind)}&qvver=${version}&`;
    return this.#promise("LoadZipFromBytes", [], { deadline }, async (entry) => {
      await this.#ready;
      if (this.#state === "closed") return entry.fail(closed());
      if (entry.ended.signal.aborted) return;
      if (globalThis.XMLHttpRequest) return this.#upload(entry, path, archive, onProgress);
      const blob = new Blob([archive]);
      await this.#post(entry, path, blob, () => onProgress?.(blob.size, blob.size));
    });
  }

  /** What the service says of itself now. @returns {Promise<Health>} */
  async freshHealth() {
    return (this.#health = await this.#page("/health"));
  }
  /** What the service found on the network. @returns {Promise<Services>} */
  services() {
    return this.#page("/services");
  }

  /** Ends the connection; commands without a reply are rejected. */
  close() {
    if (this.#state === "closed") return;
    this.#tell("closed");
    this.#closed.abort();
    this.#drop();
  }

  /** @param {Types.State} state */
  #tell(state) {
    this.#state = state;
    this.#settings.onState(state);
  }

  /**
   * The promise of a command, which its deadline ends at the latest.
   * @param {string} method @param {unknown[]} parameter @param {Types.CallOptions} options
   * @param {(entry: Entry) => void} begin
   * @returns {Promise<any>}
   */
  #promise(method, parameter, options, begin) {
    const usual = LONG.includes(method) ? this.#settings.longDeadline : this.#settings.deadline;
    const deadline = options.deadline ?? usual;
    return new Promise((resolve, reject) => {
      const id = String(++this.#count);
      const ended = new AbortController();
      /** @param {() => void} settle */
      const once = (settle) => {
        if (ended.signal.aborted) return;
        settle();
        clearTimeout(timer);
        this.#closed.signal.removeEventListener("abort", close);
        ended.abort();
      };
      const close = () => once(() => reject(closed()));
      this.#closed.signal.addEventListener("abort", close);
      const timer = setTimeout(() => {
        const why = `${method} was not answered within ${deadline} ms.`;
        once(() => reject(new ServiceError("deadline", why)));
      }, deadline);
      /** @type {Entry} */
      const entry = {
        id,
        method,
        ended,
        text: JSON.stringify({ id, method, parameter, version: "client_" + version }),
        take: (text) =>
          once(() => {
            const reply = readReply(method, text);
            reply instanceof ServiceError ? reject(reply) : resolve(reply);
          }),
        fail: (error) => once(() => reject(error)),
      };
      begin(entry);
    });
  }

  /** @param {Entry} entry */
  async #send(entry) {
    await this.#ready;
    if (entry.ended.signal.aborted) return;
    if (this.#state === "closed") return entry.fail(closed());
    if (!this.#socket || this.transport === "http") return this.#post(entry, "/qtp/", entry.text);
    this.#open.push(entry);
    this.#socket.send(entry.text);
  }

  /** @param {Entry} entry @param {string} path @param {string | Blob} body @param {() => void} [sent] */
  async #post(entry, path, body, sent) {
    try {
      const request = { method: "POST", body, signal: entry.ended.signal };
      const response = await fetch(this.#url + path, { ...request, credentials: "omit" });
      const text = await response.text();
      sent?.();
      this.#answer(entry, response.status, text);
    } catch {
      if (entry.ended.signal.aborted) return;
      entry.fail(closed());
      this.#lost();
    }
  }

  /**
   * @param {Entry} entry @param {string} path @param {Blob | ArrayBuffer | Uint8Array<ArrayBuffer>} body
   * @param {Types.UploadOptions["onProgress"]} onProgress
   */
  #upload(entry, path, body, onProgress) {
    const request = new XMLHttpRequest();
    request.open("POST", this.#url + path);
    request.upload.onprogress = ({ loaded, total }) => onProgress?.(loaded, total);
    request.onload = () => this.#answer(entry, request.status, request.responseText);
    request.onerror = request.onabort = () => entry.fail(closed());
    entry.ended.signal.addEventListener("abort", () => request.abort());
    request.send(body);
  }

  /** @param {Entry} entry @param {number} status @param {string} text */
  #answer(entry, status, text) {
    if (status === 200) return entry.take(text);
    // A WebSocket would have this refusal as a reply with that code.
    const isForbidden = status === 403;
    const details = { status, text, exception: isForbidden ? -2205 : undefined };
    const kind = isForbidden ? "failed" : "refused";
    entry.fail(new ServiceError(kind, text.trim() || `HTTP status ${status}`, details));
  }

  /** @param {string} path */
  async #page(path) {
    const signal = AbortSignal.timeout(this.#settings.deadline);
    try {
      await Promise.race([this.#ready, new Promise((resolve) => (signal.onabort = resolve))]);
      const response = await fetch(this.#url + path, { credentials: "omit", signal });
      const text = await response.text();
      const page = parse(text);
      if (page !== undefined) return page;
      throw new ServiceError(response.ok ? "reply" : "refused", `${path} cannot be read.`, {
        status: response.status,
        text,
      });
    } catch (error) {
      throw error instanceof ServiceError ? error : closed();
    }
  }

  /** @param {Types.Asked} found @param {WebSocket | null} socket */
  #use(found, socket) {
    this.#url = found.url;
    this.#health = found.health ?? null;
    if (socket) return this.#adopt(socket);
    const opening = openSocket(this.#settings, found.url);
    if (!opening) return;
    const timer = setTimeout(() => opening.close(), this.#settings.patience);
    opening.onopen = () => {
      clearTimeout(timer);
      // What is under way by HTTP comes first, so that commands keep their order.
      this.#turn = this.#turn.then(() => {
        if (this.#url === found.url && this.#state === "open") this.#adopt(opening);
        else opening.close();
      });
    };
    // Without a WebSocket it is HTTP that serves.
    opening.onclose = opening.onerror = () => clearTimeout(timer);
  }

  /** @param {WebSocket} socket */
  #adopt(socket) {
    this.#socket = socket;
    socket.onmessage = ({ data }) => this.#receive(data);
    socket.onclose = socket.onerror = () => {
      if (this.#socket === socket) this.#lost();
    };
    if (socket.readyState > 1) this.#lost();
  }

  /** @param {unknown} data */
  #receive(data) {
    const reply = parse(data);
    // A reply without an id belongs to the oldest command; one with an id tells that those before
    // its own will not be answered any more.
    const isNamed = typeof reply?.id === "string" && reply.id !== "" && "method" in reply;
    const index = isNamed ? this.#open.findIndex((entry) => entry.id === reply.id) : 0;
    if (index < 0) return;
    for (const skipped of this.#open.splice(0, index)) skipped.fail(closed());
    this.#open.shift()?.take(data);
  }

  #drop() {
    const socket = this.#socket;
    this.#socket = null;
    socket?.close();
    for (const entry of this.#open.splice(0)) entry.fail(closed());
  }

  #lost() {
    if (this.#state !== "open") return;
    this.#drop();
    this.#tell("reconnecting");
    this.#ready = this.#reconnect();
  }

  async #reconnect() {
    const longest = 30_000;
    for (let length = 250; this.#state !== "closed"; length = Math.min(2 * length, longest)) {
      // Not all pages of a machine at the same moment.
      await pause(length * (0.5 + Math.random() / 2), this.#closed.signal);
      if (this.#closed.signal.aborted) return;
      const { found, socket } = await find(this.#settings);
      if (this.#closed.signal.aborted) return socket?.close();
      if (!found) continue;
      this.#use(found, socket);
      return this.#tell("open");
    }
  }
}

for (const [name, method] of Object.entries(METHODS)) {
  Object.defineProperty(ServiceClient.prototype, name, {
    /** @this {ServiceClient} @param {any[]} parameter */
    value(...parameter) {
      return this.call(method, /** @type {any} */ (parameter));
    },
  });
}

const closed = () => new ServiceError("closed", "The connection ended before the reply came.");

/** The reply in a text, or what is wrong with it. @param {string} method @param {unknown} text */
function readReply(method, text) {
  if (text === "" && EMPTY.includes(method)) return text;
  const reply = parse(text);
  const bad = { text: String(text) };
  if (typeof reply !== "object" || reply === null) {
    return new ServiceError("reply", `The reply to ${method} is no JSON object or list.`, bad);
  }
  if (typeof reply.exception === "number") {
    const details = { exception: reply.exception, ...bad };
    return new ServiceError("failed", String(reply.description), details);
  }
  if (BRACES.includes(method) && Object.keys(reply).length === 0) {
    return new ServiceError("failed", "Invalid parameter type.", { exception: -2201, ...bad });
  }
  return reply;
}

/**
 * Finds the service. Rejects with a ServiceError of kind `connect` whose `causes` name what is wrong.
 * @param {Types.Options} [options]
 * @returns {Promise<Service>}
 */
export async function connect(options = {}) {
  const settings = complete(options);
  const { found, socket, asked } = await find(settings);
  if (found) return /** @type {Service} */ (new ServiceClient(settings, found, socket));
  const causes = await explain(asked, settings);
  const message = causes.map((cause) => cause.sentence).join(" Or: ");
  throw new ServiceError("connect", message, { causes, asked });
}

/**
 * Tells what stands between this page and the service. Never rejects.
 * @param {Types.Options} [options]
 * @returns {Promise<Types.Diagnosis>}
 */
export async function diagnose(options = {}) {
  const settings = complete(options);
  const { found, socket, asked } = await find(settings);
  socket?.close();
  const causes = found ? [] : await explain(asked, settings);
  return { causes, url: found?.url ?? null, health: found?.health ?? null, asked };
}
