#include "messageboxes.h"

namespace {

// Until a real implementation is installed nothing is shown and every question is No,
// which is the safe answer to all of them.
class SilentMessageBoxes final : public MessageBoxes
{
public:
    void show(Icon, const QString&, const QString&) override {}
    bool ask(const QString&, bool, const QString&) override { return false; }
};

SilentMessageBoxes g_silent;
MessageBoxes* g_instance = nullptr;

} // namespace

MessageBoxes& MessageBoxes::instance()
{
    return g_instance ? *g_instance : static_cast<MessageBoxes&>(g_silent);
}

void MessageBoxes::setInstance(MessageBoxes* box) { g_instance = box; }
