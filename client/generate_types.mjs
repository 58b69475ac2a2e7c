// Writes commands.d.ts, the types of the commands, from docs/commands.schema.json. With --check it
// only says, by its exit code, whether the file is up to date.
import { readFileSync, writeFileSync } from "node:fs";
import { compile } from "json-schema-to-typescript";

const target = new URL("commands.d.ts", import.meta.url);
const schema = JSON.parse(readFileSync(new URL("../docs/commands.schema.json", import.meta.url)));

/** The generator reads tuples as drafts before 2020-12 write them. */
function withOldTuples(value) {
  if (Array.isArray(value)) return value.map(withOldTuples);
  if (typeof value !== "object" || value === null) return value;
  const { prefixItems, ...rest } = value;
  const copy = Object.fromEntries(Object.entries(rest).map(([k, v]) => [k, withOldTuples(v)]));
  if (prefixItems) Object.assign(copy, { items: withOldTuples(prefixItems), additionalItems: false });
  if (rest.maxItems === 0) Object.assign(copy, { items: [], additionalItems: false });
  if (rest.items === true) copy.items = {};
  // Which text goes with which code is more than types can say.
  if (copy.properties?.exception) delete copy.oneOf;
  return copy;
}

const types = await compile(withOldTuples(schema), "Commands", {
  additionalProperties: true,
  bannerComment: "// Made by generate_types.mjs from docs/commands.schema.json: do not edit.",
  unknownAny: true,
  unreachableDefinitions: true,
});
const tidy = types.replace(/\n \* This interface was referenced by [^\n]*\n \* via the [^\n]*/g, "");
if (!process.argv.includes("--check")) writeFileSync(target, tidy);
else if (readFileSync(target, "utf8") !== tidy) {
  console.error("client/commands.d.ts is not up to date: run `npm run types` in client/.");
  process.exit(1);
}
