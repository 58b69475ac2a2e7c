/*! marvique-client 17.3.0, MIT */
import type { Commands, Health, Services } from "./commands.js";
import type * as Types from "./types.js";
/** @import { Commands, Health, Services } from "./commands.js" */
/** @import * as Types from "./types.js" */
export declare const version = "17.3.0";
/** The typed methods and their commands. LoadZipFromBytes has a method of its own. */
declare const METHODS: {
    readonly serverInfo: "GetServerInfo";
    readonly setServerInfo: "SetServerInfo";
    readonly reboot: "Reboot";
    readonly ports: "GetPorts";
    readonly checkHVNPort: "CheckHVNPort";
    readonly changePort: "ChangePort";
    readonly addFirewall: "AddFirewall";
    readonly localIP: "GetLocalIP";
    readonly versionInfo: "VersionInfo";
    readonly qvVersion: "QVVersion";
    readonly certExpiredDate: "GetCertExpiredDate";
    readonly binaryFileInfo: "GetBinaryFileInfo";
    readonly setmDNSQueryService: "SetmDNSQueryService";
    readonly mDNSQueryService: "GetmDNSQueryService";
    readonly setmDNSService: "SetmDNSService";
    readonly mDNSService: "GetmDNSService";
    readonly checkUpdateFile: "CheckUpdateFile";
};
export type Methods = {
    [K in keyof typeof METHODS]: (...parameter: Commands[(typeof METHODS)[K]]["parameter"]) => Promise<Commands[(typeof METHODS)[K]]["reply"]>;
};
export type Service = ServiceClient & Methods;
export type Entry = {
    id: string;
    method: string;
    text: string;
    /**
     * Aborted as soon as the promise is settled.
     */
    ended: AbortController;
    take: (text: unknown) => void;
    fail: (error: ServiceError) => void;
};
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
export declare class ServiceError extends Error {
    kind: Types.ErrorKind;
    causes: Types.NamedCause[];
    asked: Types.Asked[];
    exception: number | undefined;
    status: number | undefined;
    text: string | undefined;
    /**
     * @param {Types.ErrorKind} kind
     * @param {string} message
     * @param {{ causes?: Types.NamedCause[], asked?: Types.Asked[], exception?: number, status?: number,
     *     text?: string }} [details]
     */
    constructor(kind: Types.ErrorKind, message: string, details?: {
        causes?: Types.NamedCause[];
        asked?: Types.Asked[];
        exception?: number;
        status?: number;
        text?: string;
    });
}
/** @param {Types.Options} options */
declare function complete(options: Types.Options): {
    ports: readonly number[];
    securePorts: readonly number[];
    patience: number;
    deadline: number;
    longDeadline: number;
    onState: (state: Types.State) => void;
    WebSocket: {
        new (url: string | URL, protocols?: string | string[]): WebSocket;
        prototype: WebSocket;
        readonly CONNECTING: 0;
        readonly OPEN: 1;
        readonly CLOSING: 2;
        readonly CLOSED: 3;
    } | null;
};
export type Settings = ReturnType<typeof complete>;
/** A connection to the service, made by `connect`. */
declare class ServiceClient {
    #private;
    /** @param {Settings} settings @param {Types.Asked} found @param {WebSocket | null} socket */
    constructor(settings: Settings, found: Types.Asked, socket: WebSocket | null);
    /** Where the service is, such as http://127.0.0.1:18625 */
    get url(): string;
    /** What the service said of itself when it was found; null where only a WebSocket got through. */
    get health(): Health | null;
    get state(): Types.State;
    /** How the next command is sent. @returns {"websocket" | "http"} */
    get transport(): "websocket" | "http";
    /**
     * Sends a command and resolves with its reply.
     * @template {Exclude<keyof Commands, "LoadZipFromBytes">} M
     * @param {M} method
     * @param {Commands[M]["parameter"]} parameter
     * @param {Types.CallOptions} [options]
     * @returns {Promise<Commands[M]["reply"]>}
     */
    call<M extends Exclude<keyof Commands, "LoadZipFromBytes">>(method: M, parameter: Commands[M]["parameter"], options?: Types.CallOptions): Promise<Commands[M]["reply"]>;
    /**
     * Uploads a zip file: kind 1 is a service update, 2 certificates, any other module files.
     * @param {number} kind
     * @param {string} version
     * @param {Blob | ArrayBuffer | Uint8Array<ArrayBuffer>} archive
     * @param {Types.UploadOptions} [options]
     * @returns {Promise<Commands["LoadZipFromBytes"]["reply"]>}
     */
    loadZipFromBytes(kind: number, version: string, archive: Blob | ArrayBuffer | Uint8Array<ArrayBuffer>, { deadline, onProgress }?: Types.UploadOptions): Promise<Commands["LoadZipFromBytes"]["reply"]>;
    /** What the service says of itself now. @returns {Promise<Health>} */
    freshHealth(): Promise<Health>;
    /** What the service found on the network. @returns {Promise<Services>} */
    services(): Promise<Services>;
    /** Ends the connection; commands without a reply are rejected. */
    close(): void;
}
/**
 * Finds the service. Rejects with a ServiceError of kind `connect` whose `causes` name what is wrong.
 * @param {Types.Options} [options]
 * @returns {Promise<Service>}
 */
export declare function connect(options?: Types.Options): Promise<Service>;
/**
 * Tells what stands between this page and the service. Never rejects.
 * @param {Types.Options} [options]
 * @returns {Promise<Types.Diagnosis>}
 */
export declare function diagnose(options?: Types.Options): Promise<Types.Diagnosis>;
export {};
