#include "liborb/drivers/software/mailbox.h"

#include <QMetaObject>

#include <utility>

namespace ferin {

namespace {

constexpr int mostWaiting = 1000;

} // namespace

void Mailbox::post(std::function<void()> answer)
{
    _waiting->fetch_add(1);
    QMetaObject::invokeMethod(
        &_target,
        [waiting = _waiting, answer = std::move(answer)] {
            waiting->fetch_sub(1);
            answer();
        },
        Qt::QueuedConnection);
}

void Mailbox::postIfRoom(std::function<void()> answer)
{
    if (_waiting->load() < mostWaiting)
        post(std::move(answer));
}

} // namespace ferin
