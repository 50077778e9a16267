#pragma once

/** DuckDB engines and connections received and not yet given back by the whole program. Counted without any
    ordering between threads, so that ThreadSanitizer sees what it would see without the counting; exact once
    the threads have been joined. The program is linked with --wrap for the four functions. */
namespace handle_balance {

long CountEngines();
long CountConnections();
/** Engines received in all. */
long CountOpened();

}  // namespace handle_balance
