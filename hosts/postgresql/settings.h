// The component's system variables as settings of the PostgreSQL server.

#ifndef HALVEX_POSTGRESQL_SETTINGS_H
#define HALVEX_POSTGRESQL_SETTINGS_H

namespace halvex_postgresql {

// Makes the two settings known to the server. Called once, as the library is loaded.
void define_settings();

// Gives a component that has just been loaded the values that the settings have.
void apply_settings();

}  // namespace halvex_postgresql

#endif  // HALVEX_POSTGRESQL_SETTINGS_H
