/** A connection of a driver that loads extensions, such as node:sqlite and sqlite3. */
export interface LoadsExtensions<More extends unknown[] = [], Result = unknown> {
  loadExtension(path: string, ...more: More): Result;
}

/** Path of the extension as SQLite's load_extension takes it, without the suffix. */
export function loadablePath(): string;

/**
 * Gives a database connection the functions and tables of the extension.
 *
 * Fails as the driver's own loadExtension does: node:sqlite throws the reason, sqlite3 passes it to the callback, the
 * second argument.
 */
export function load<More extends unknown[], Result>(database: LoadsExtensions<More, Result>, ...more: More): Result;
