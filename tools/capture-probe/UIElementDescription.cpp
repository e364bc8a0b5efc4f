// libatspi pulls in GLib, whose structs have members named like Qt's keywords: it comes first.
#include <atspi/atspi.h>

#include "UIElementDescription.h"

#include "platform/atspi/AtspiGuard.h"
#include "platform/atspi/UIElementText.h"
#include "platform/atspi/UIElementUtilities.h"

#include <QStringList>

using namespace AtspiCall;

namespace {

QString roleName(const UIElement &element)
{
    GError *error = nullptr;
    QString name = takeString(atspi_accessible_get_role_name(element.accessible(), &error));
    return failed(error) ? QStringLiteral("?") : name;
}

// "<role: “name”>", or "<role>" without a name.
QString shortDescription(const UIElement &element)
{
    const QString title = UIElementUtilities::titleOfUIElement(element);
    return title.isEmpty() ? QStringLiteral("<%1>").arg(roleName(element))
                           : QStringLiteral("<%1: \u201c%2\u201d>").arg(roleName(element), title);
}

QString lineageDescription(const UIElement &element)
{
    QStringList lineage;
    for (UIElement current = element; current && lineage.size() < 100;
         current = UIElementUtilities::parentOfUIElement(current))
        lineage.prepend(shortDescription(current));
    QString description;
    QString indent;
    for (const QString &entry : lineage) {
        description += indent + entry + u'\n';
        indent += u' ';
    }
    return description;
}

QString statesText(const UIElement &element)
{
    const GObjectRef<AtspiStateSet> set(atspi_accessible_get_state_set(element.accessible()));
    auto *states = static_cast<GEnumClass *>(g_type_class_ref(ATSPI_TYPE_STATE_TYPE));
    QStringList names;
    for (int state = 0; set && state < ATSPI_STATE_LAST_DEFINED; ++state) {
        const GEnumValue *value = g_enum_get_value(states, state);
        if (value && atspi_state_set_contains(set.get(), AtspiStateType(state)))
            names << QString::fromUtf8(value->value_nick);
    }
    g_type_class_unref(states);
    return names.join(u' ');
}

QList<QPair<QString, QString>> attributes(const UIElement &element)
{
    QList<QPair<QString, QString>> lines{
        {QStringLiteral("role"), roleName(element)},
        {QStringLiteral("name"), UIElementUtilities::titleOfUIElement(element)},
        {QStringLiteral("description"), UIElementUtilities::descriptionOfUIElement(element)},
        {QStringLiteral("states"), statesText(element)},
        {QStringLiteral("children"),
         QString::number(UIElementUtilities::childrenOfUIElement(element).size())},
        {QStringLiteral("process"),
         QString::number(UIElementUtilities::processIdentifierOfUIElement(element))}};
    if (const std::optional<QRect> extents = UIElementUtilities::extentsOfUIElement(element))
        lines.append({QStringLiteral("extents"), QStringLiteral("x=%1 y=%2 w=%3 h=%4")
                                                     .arg(extents->x())
                                                     .arg(extents->y())
                                                     .arg(extents->width())
                                                     .arg(extents->height())});
    if (const std::optional<qsizetype> count = UIElementText::characterCount(element)) {
        lines.append({QStringLiteral("characters"), QString::number(*count)});
        lines.append(
            {QStringLiteral("text"), UIElementText::contents(element).value_or(QString())});
        lines.append({QStringLiteral("selected text"),
                      UIElementText::selectedText(element).value_or(QString())});
    }
    if (const std::optional<double> value = UIElementUtilities::numericValueOfUIElement(element))
        lines.append({QStringLiteral("value"), QString::number(*value, 'g', 17)});
    const UIElementToolkit toolkit = UIElementUtilities::toolkitOfUIElement(element);
    lines.append({QStringLiteral("toolkit"), toolkit.name + u' ' + toolkit.version});
    if (const auto binding = UIElementUtilities::menuKeyBindingOfUIElement(element))
        lines.append({QStringLiteral("menu key"),
                      QStringLiteral("%1 modifiers %2").arg(binding->key).arg(binding->modifiers)});
    const QHash<QString, QString> objectAttributes =
        AtspiCall::objectAttributes(element.accessible());
    for (auto it = objectAttributes.cbegin(); it != objectAttributes.cend(); ++it)
        lines.append({it.key(), it.value()});
    return lines;
}

QString actionsDescription(const UIElement &element)
{
    const auto actions = interfaceOf(element.accessible(), atspi_accessible_get_action_iface);
    if (!actions)
        return {};
    GError *error = nullptr;
    const gint count = atspi_action_get_n_actions(actions.get(), &error);
    QString description;
    for (gint i = 0; !failed(error) && i < count; ++i) {
        const QString name = takeString(atspi_action_get_action_name(actions.get(), i, &error));
        failed(error);
        error = nullptr;
        const QString about =
            takeString(atspi_action_get_action_description(actions.get(), i, &error));
        description += QStringLiteral("   %1 - %2\n").arg(name, about);
    }
    return description.isEmpty() ? description : QStringLiteral("\nActions:\n") + description;
}

} // namespace

QString stringDescriptionOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    return run<QString>([element] {
        QString report = lineageDescription(element) + QStringLiteral("\nAttributes:\n");
        for (const auto &[name, text] : attributes(element))
            report += QStringLiteral("   %1:  \u201c%2\u201d\n").arg(name, text);
        return report + actionsDescription(element);
    });
}
