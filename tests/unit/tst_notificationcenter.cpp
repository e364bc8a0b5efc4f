#include "common/NotificationCenter.h"

#include <QTest>

#include <memory>

class TestNotificationCenter : public QObject
{
    Q_OBJECT
private slots:
    void deliversInOrderWithUserInfo();
    void observerEndsWithItsContext();
    void handlerMayAddObservers();
    void otherNamesAreNotDelivered();
};

void TestNotificationCenter::deliversInOrderWithUserInfo()
{
    NotificationCenter center;
    QObject context;
    QStringList calls;
    center.addObserver(NotificationNames::kSpotlightEditingFinished, &context,
                       [&](const QVariantMap &info) {
                           calls << QStringLiteral("first:") +
                                        info.value(NotificationUserInfoKeys::kText).toString();
                       });
    center.addObserver(NotificationNames::kSpotlightEditingFinished, nullptr,
                       [&](const QVariantMap &) { calls << QStringLiteral("second"); });

    center.post(NotificationNames::kSpotlightEditingFinished,
                {{NotificationUserInfoKeys::kText, QStringLiteral("hola")}});
    // Synchronous: everything ran before post() returned.
    QCOMPARE(calls, (QStringList{QStringLiteral("first:hola"), QStringLiteral("second")}));
}

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

void TestNotificationCenter::otherNamesAreNotDelivered()
{
    NotificationCenter center;
    int calls = 0;
    center.addObserver(NotificationNames::kSpotlightTranslationPerformedSuccessfully, nullptr,
                       [&](const QVariantMap &) { ++calls; });
    center.post(NotificationNames::kSpotlightEnterPressedNotification);
    center.post(QStringLiteral("spotlighttranslationperformedsuccessfully"));
    QCOMPARE(calls, 0);
}

QTEST_APPLESS_MAIN(TestNotificationCenter)
#include "tst_notificationcenter.moc"
