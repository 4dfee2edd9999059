// Compiled into every test executable (an interface source of the support library).
//
// unixODBC's profile reader and the PostgreSQL ODBC driver keep a cache of the parsed
// odbc.ini/odbcinst.ini entries for the life of the process and never free it; the leak
// checker would report that cache at exit of every test that touched ODBC. Nothing of
// ours is hidden by this: only allocations made inside those two libraries are matched.
// Weak: the source connection code carries the same list for the programs themselves.
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions();
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions()
{
    return "leak:libodbcinst.so\n"
           "leak:psqlodbcw.so\n"
           "leak:psqlodbca.so\n";
}
