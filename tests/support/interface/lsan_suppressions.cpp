// Compiled into every test executable. unixODBC's profile reader and the PostgreSQL ODBC
// driver cache the parsed odbc.ini entries for the life of the process and never free
// them; only allocations inside those libraries are matched. Weak: the source connection
// code carries the same list for the programs themselves.
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions();
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions()
{
    return "leak:libodbcinst.so\n"
           "leak:psqlodbcw.so\n"
           "leak:psqlodbca.so\n";
}
