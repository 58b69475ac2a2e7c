// Compiled only: what the types promise to those who use the client.
import { connect, diagnose, ServiceError } from "../marvique-client.js";
import type { Service } from "../marvique-client.js";
import type { Cause } from "../types.js";
import type { Commands } from "../commands.js";

export async function use(): Promise<string[]> {
  const service = await connect({ ports: [1], onState: (state) => state === "open" });
  const port: string = (await service.serverInfo()).qtp.port;
  const [module]: string[] = (await service.versionInfo()).result;
  const silent: "" = await service.setmDNSService(true, "a", "", false, false, false, 0, false, "");
  // @ts-expect-error: a parameter is missing.
  await service.ports();
  // @ts-expect-error: a parameter is of a wrong type.
  await service.checkUpdateFile(17);
  // @ts-expect-error: there is no such command.
  await service.call("Getports", []);
  // @ts-expect-error: no such state.
  service.state === "lost";
  const causes: Cause[] = (await diagnose()).causes.map((cause) => cause.name);
  return [port, module ?? "", silent, ...causes];
}

export function explain(error: unknown): number | undefined {
  return error instanceof ServiceError && error.kind === "failed" ? error.exception : undefined;
}

/** Every command of the schema has a method of its own. */
type Replies<T> = { [K in keyof T]: T[K] extends (...words: never) => Promise<infer R> ? R : never }[keyof T];
type Missing = {
  [K in keyof Commands]: Commands[K]["reply"] extends Replies<Omit<Service, "call">> ? never : K;
}[keyof Commands];
export const none: [Missing] extends [never] ? true : Missing = true;
