#pragma once

/** DuckDB engines and connections that the whole program has received and not yet closed. Counted without any
    ordering between threads, so that ThreadSanitizer reports the same as without the counting; exact once the
    threads have been joined. The program is linked with --wrap for the four functions. */
namespace handle_balance {

long CountEngines();
long CountConnections();
/** Engines received in all. */
long CountOpened();

}  // namespace handle_balance
