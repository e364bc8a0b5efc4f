#include "common/NotificationCenter.h"

#include <QTest>

#include <memory>

class TestNotificationCenter : public QObject
{
    Q_OBJECT
private slots:
    void observerEndsWithItsContext();
    void handlerMayAddObservers();
};

// Delivery with the user info, before post() returns, is the typing panel test's.
void TestNotificationCenter::observerEndsWithItsContext()
{
    NotificationCenter center;
    int calls = 0;
    auto context = std::make_unique<QObject>();
    center.addObserver(NotificationNames::kOpenTypingModeNotification, context.get(),
                       [&](const QVariantMap &) { ++calls; });
    center.post(NotificationNames::kOpenTypingModeNotification);
    context.reset();
    center.post(NotificationNames::kOpenTypingModeNotification);
    QCOMPARE(calls, 1);

    QObject other;
    center.addObserver(NotificationNames::kOpenTypingModeNotification, &other,
                       [&](const QVariantMap &) { ++calls; });
    center.removeObservers(&other);
    center.post(NotificationNames::kOpenTypingModeNotification);
    QCOMPARE(calls, 1);
}

void TestNotificationCenter::handlerMayAddObservers()
{
    NotificationCenter center;
    int late = 0;
    center.addObserver(NotificationNames::kOpenTypingModeNotification, nullptr,
                       [&](const QVariantMap &) {
                           center.addObserver(NotificationNames::kOpenTypingModeNotification,
                                              nullptr, [&](const QVariantMap &) { ++late; });
                       });
    center.post(NotificationNames::kOpenTypingModeNotification);
    // An observer added during a post hears the next one, not the current one.
    QCOMPARE(late, 0);
    center.post(NotificationNames::kOpenTypingModeNotification);
    QCOMPARE(late, 1);
}

QTEST_APPLESS_MAIN(TestNotificationCenter)
#include "tst_notificationcenter.moc"
