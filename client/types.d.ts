// The types of the client beside those of the commands.
import type { Health } from "./commands.js";

export type Cause =
  | "not-running"
  | "permission"
  | "origin-refused"
  | "other-user"
  | "certificate"
  | "mixed-content"
  | "too-old";

/** A cause with a sentence that a page can show. */
export interface NamedCause {
  name: Cause;
  sentence: string;
}

export type ErrorKind = "connect" | "failed" | "refused" | "reply" | "deadline" | "closed";
export type State = "open" | "reconnecting" | "closed";

export interface Options {
  /** Plain ports to ask, all at once: 18625, 18635, 18645. */
  ports?: readonly number[];
  /** Ports with TLS to ask, all at once: 18626, 18636, 18646. */
  securePorts?: readonly number[];
  /** Milliseconds that finding the service may take: 10,000. */
  patience?: number;
  /** Milliseconds that a command may take: 30,000. */
  deadline?: number;
  /** The same for uploads and updates: 600,000. */
  longDeadline?: number;
  /** Is told when the connection is lost, back, or closed. */
  onState?: (state: State) => void;
  /** Another implementation; null for HTTP alone. */
  WebSocket?: typeof WebSocket | null;
}

/** What one address told. */
export interface Asked {
  url: string;
  secure: boolean;
  /** `opaque`: something answers, but not to this page. `foreign`: another program answers. */
  answer: "ok" | "pending" | "failed" | "opaque" | "foreign" | "origin-refused" | "other-user" | "too-old";
  health?: Health;
  /** The certificate was refused, where an engine tells that. */
  untrusted?: boolean;
  /** A WebSocket was tried and closed. */
  socketClosed?: boolean;
}

export interface Diagnosis {
  /** Empty when the service can be used; several where this engine cannot tell which it is. */
  causes: NamedCause[];
  /** Of the service that was found. */
  url: string | null;
  /** What it says of itself; null where only a WebSocket got through. */
  health: Health | null;
  asked: Asked[];
}

export interface CallOptions {
  /** Milliseconds. */
  deadline?: number;
}

export interface UploadOptions extends CallOptions {
  /** Bytes that were sent, and all. */
  onProgress?: (sent: number, total: number) => void;
}
