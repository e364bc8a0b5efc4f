#include "ui/AnimatedSetString.h"

#include <QEasingCurve>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QPalette>
#include <QPointer>
#include <QPropertyAnimation>

#include <functional>

namespace AnimatedSetString {
namespace {

QGraphicsOpacityEffect *opacityEffect(QLabel *field)
{
    if (auto *effect = qobject_cast<QGraphicsOpacityEffect *>(field->graphicsEffect()))
        return effect;
    auto *effect = new QGraphicsOpacityEffect(field);
    effect->setOpacity(1.0);
    field->setGraphicsEffect(effect);
    return effect;
}

void fadeTo(QGraphicsOpacityEffect *effect, qreal opacity, int milliseconds,
            QEasingCurve::Type curve, std::function<void()> completion)
{
    auto *animation = new QPropertyAnimation(effect, "opacity", effect);
    animation->setDuration(milliseconds);
    animation->setEasingCurve(curve);
    animation->setEndValue(opacity);
    if (completion)
        QObject::connect(animation, &QPropertyAnimation::finished, effect, std::move(completion));
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}

void crossFade(QLabel *field, std::function<void()> setValue)
{
    QGraphicsOpacityEffect *effect = opacityEffect(field);
    fadeTo(effect, 0.0, kFadeOutMilliseconds, QEasingCurve::OutQuad,
           [effect, setValue = std::move(setValue)] {
               setValue();
               fadeTo(effect, 1.0, kFadeInMilliseconds, QEasingCurve::InQuad, {});
           });
}

void applyColor(QLabel *field, const QColor &color)
{
    // Only the text role is set, so everything else keeps following the window's palette;
    // an empty palette gives the field back its inherited colour.
    QPalette palette;
    if (color.isValid())
        palette.setColor(QPalette::WindowText, color);
    field->setPalette(palette);
}

} // namespace

void setStringValue(QLabel *field, const QString &value)
{
    if (!field)
        return;
    applyColor(field, QColor());
    field->setText(value);
}

void setAttributedStringValue(QLabel *field, const AttributedString &value)
{
    if (!field)
        return;
    applyColor(field, value.foregroundColor);
    field->setText(value.string);
}

void setAnimatedStringValue(QLabel *field, const QString &value)
{
    if (!field || field->text() == value)
        return;
    QPointer<QLabel> guarded(field);
    crossFade(field, [guarded, value] { setStringValue(guarded, value); });
}

void setAnimatedAttributedStringValue(QLabel *field, const AttributedString &value)
{
    if (!field)
        return;
    QPointer<QLabel> guarded(field);
    crossFade(field, [guarded, value] { setAttributedStringValue(guarded, value); });
}

} // namespace AnimatedSetString

QColor grayTextColor()
{
    return QColor::fromRgbF(0.5f, 0.5f, 0.5f);
}
