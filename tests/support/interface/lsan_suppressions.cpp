// unixODBC's profile reader and the PostgreSQL ODBC driver keep parsed odbc.ini entries for
// the life of the process. Weak: the source connection code carries the same list.
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions();
extern "C" __attribute__((weak)) const char* __lsan_default_suppressions()
{
    return "leak:libodbcinst.so\n"
           "leak:psqlodbcw.so\n"
           "leak:psqlodbca.so\n"
           // The same driver's libpq option lists, when the stack cannot be walked past libpq.
           "leak:libpq.so\n";
}
