#pragma once

#include <QString>

#include <memory>

// Opens a connection string read-only on a helper thread and counts its user tables, so a
// window can stay responsive while a slow or unreachable server makes the driver wait. The
// driver cannot be interrupted: a probe that is given up on (destroyed before it finished)
// lets its thread run to the end in the background, and nothing of it is reported; one
// given up on before its thread began never connects. The application waits for running
// probes when it ends.
class ConnectionProbe final
{
public:
    struct Result
    {
        bool ok = false;
        int tableCount = 0;
        QString message; // "<number> - <description>" when not ok
    };

    explicit ConnectionProbe(const QString& conString);
    ~ConnectionProbe();
    ConnectionProbe(const ConnectionProbe&) = delete;
    ConnectionProbe& operator=(const ConnectionProbe&) = delete;

    bool finished() const;
    Result result() const; // meaningful once finished() is true

private:
    struct State;
    std::shared_ptr<State> m_state;
};
