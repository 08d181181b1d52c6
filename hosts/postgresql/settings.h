// The component's system variables as settings of the PostgreSQL server, and the extension's own
// setting.

#ifndef HALVEX_POSTGRESQL_SETTINGS_H
#define HALVEX_POSTGRESQL_SETTINGS_H

namespace halvex_postgresql {

// Declares the settings to the server. Called once, as the library is loaded.
void define_settings();

// Gives a component that has just been loaded the values that the settings have.
void apply_settings();

// The level at which records are reported: the setting halvex_encryption.record_level.
int record_level();

}  // namespace halvex_postgresql

#endif  // HALVEX_POSTGRESQL_SETTINGS_H
