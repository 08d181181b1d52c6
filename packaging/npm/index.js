'use strict';

// RSA keys, encryption, signatures and digests as SQL functions in SQLite.

const path = require('node:path');

// Path of the extension as SQLite's load_extension takes it, without the suffix.
function loadablePath() {
  return path.join(__dirname, 'halvex_sqlite');
}

// Gives a database connection the functions and tables of the extension; the arguments after it are the driver's own.
function load(database, ...more) {
  return database.loadExtension(loadablePath(), ...more);
}

module.exports = { load, loadablePath };
