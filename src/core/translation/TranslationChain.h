#pragma once

#include "translation/Translator.h"

#include <QList>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <optional>

// The user's services in order, asked one after the other within one request: when a
// service refuses, cannot be reached, cannot read the text or is not configured, the next
// one is asked. "Google (alternative client)" is asked only right after "Google" refused
// (or when the user put it first). When every service fails, the completion gets the first
// asked service's failure and the log holds what each answered. A cancel ends the request
// at the service being asked; nothing more is sent.
//
// Owns its services. Main thread; completions run there, like its services'.
class TranslationChain : public Translator
{
    Q_OBJECT
public:
    explicit TranslationChain(QObject *parent = nullptr);
    ~TranslationChain() override;

    // Takes ownership; the order of appending is the order of asking.
    void append(Translator *service);
    // Ends the request in flight and lets go of every service (the settings changed).
    void removeAllServices();
    QList<Translator *> services() const;

    // The first service's name: the one the user chose.
    QString serviceName() const override;
    bool isConfigured() const override;
    void translateText(const QString &textToTranslate, const QString &targetLanguage,
                       TranslationCompletion completion) override;
    void cancelCurrentTranslationRequestIfAny() override;
    // Warms the first configured service only: the others are asked only when it fails.
    void prepare() override;
    QString answeringServiceName() const override { return m_answeringService; }

signals:
    // At the end of each request, before its completion: which service answered (empty
    // when none did), and whether that was the first one (the user's choice).
    void answered(const QString &serviceName, bool byFirstService);

private:
    struct Failure
    {
        QString text;
        QString guessed;
        QString error;
        TranslationEnd end = TranslationEnd::Unreachable;
    };

    void askNext();
    void serviceCompleted(int generation, bool success, const QString &translatedText,
                          const QString &guessedLanguageCode, const QString &errorMessage);
    void finish(TranslationEnd end, bool success, const QString &translatedText,
                const QString &guessedLanguageCode, const QString &errorMessage);

    QList<Translator *> m_services;
    QString m_answeringService;

    // The request being served.
    bool m_open = false;
    int m_generation = 0;
    int m_index = -1;
    QString m_text;
    QString m_language;
    TranslationCompletion m_completion;
    std::optional<Failure> m_firstFailure;
    bool m_defaultRefused = false;
};
