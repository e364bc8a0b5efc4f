#include "integration/DesktopEntry.h"

namespace DesktopEntry {

namespace {

// Characters that force an Exec argument into double quotes.
const QString kReservedExecCharacters = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
// Characters that need a backslash inside a double-quoted Exec argument.
const QString kQuotedExecEscapes = QStringLiteral("\"`$\\");

bool isTrue(const QString &value)
{
    return value.trimmed().compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
}

} // namespace

QMap<QString, QString> parseDesktopEntryGroup(const QString &text)
{
    QMap<QString, QString> group;
    bool inDesktopEntry = false;
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &rawLine : lines) {
        const QString line = rawLine.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        if (line.startsWith(QLatin1Char('['))) {
            // Keys before the first group header, or in later groups, are not ours.
            if (inDesktopEntry)
                break;
            inDesktopEntry = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inDesktopEntry)
            continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed();
        // The first occurrence of a key wins; a later duplicate is an error in the file.
        if (!group.contains(key))
            group.insert(key, unescapeValue(line.mid(equals + 1).trimmed()));
    }
    return group;
}

QString escapeValue(const QString &value)
{
    QString escaped;
    escaped.reserve(value.size());
    for (const QChar c : value) {
        switch (c.unicode()) {
        case '\\':
            escaped += QLatin1String("\\\\");
            break;
        case '\n':
            escaped += QLatin1String("\\n");
            break;
        case '\t':
            escaped += QLatin1String("\\t");
            break;
        case '\r':
            escaped += QLatin1String("\\r");
            break;
        default:
            escaped += c;
        }
    }
    // A leading space would be trimmed away when read back.
    if (escaped.startsWith(QLatin1Char(' ')))
        escaped.replace(0, 1, QLatin1String("\\s"));
    return escaped;
}

QString unescapeValue(const QString &value)
{
    QString plain;
    plain.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c != QLatin1Char('\\') || i + 1 == value.size()) {
            plain += c;
            continue;
        }
        const QChar next = value.at(++i);
        switch (next.unicode()) {
        case 's':
            plain += QLatin1Char(' ');
            break;
        case 'n':
            plain += QLatin1Char('\n');
            break;
        case 't':
            plain += QLatin1Char('\t');
            break;
        case 'r':
            plain += QLatin1Char('\r');
            break;
        case '\\':
            plain += QLatin1Char('\\');
            break;
        // Unknown escapes are kept whole: the Exec quoting has its own backslashes.
        default:
            plain += c;
            plain += next;
        }
    }
    return plain;
}

std::optional<QStringList> splitExec(const QString &exec)
{
    QStringList arguments;
    QString current;
    bool inArgument = false;
    bool quoted = false;
    // An argument made only of field codes expands to nothing and is dropped; "" is kept.
    bool hadQuotes = false;
    const auto endArgument = [&] {
        if (inArgument && (hadQuotes || !current.isEmpty()))
            arguments.append(current);
        current.clear();
        inArgument = false;
        hadQuotes = false;
    };
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec.at(i);
        if (quoted) {
            if (c == QLatin1Char('"')) {
                quoted = false;
            } else if (c == QLatin1Char('\\') && i + 1 < exec.size() &&
                       kQuotedExecEscapes.contains(exec.at(i + 1))) {
                current += exec.at(++i);
            } else {
                current += c;
            }
            continue;
        }
        if (c == QLatin1Char(' ') || c == QLatin1Char('\t')) {
            endArgument();
            continue;
        }
        inArgument = true;
        if (c == QLatin1Char('"')) {
            quoted = true;
            hadQuotes = true;
        } else if (c == QLatin1Char('%') && i + 1 < exec.size()) {
            const QChar code = exec.at(++i);
            if (code == QLatin1Char('%'))
                current += code;
            // Any other field code expands to nothing here: an autostart has no files or URLs.
        } else {
            current += c;
        }
    }
    if (quoted)
        return std::nullopt;
    endArgument();
    return arguments;
}

QString quoteExecArgument(const QString &argument)
{
    QString withPercents = argument;
    withPercents.replace(QLatin1Char('%'), QLatin1String("%%"));
    bool needsQuotes = withPercents.isEmpty();
    for (const QChar c : withPercents)
        needsQuotes = needsQuotes || kReservedExecCharacters.contains(c);
    if (!needsQuotes)
        return withPercents;
    QString quoted = QStringLiteral("\"");
    for (const QChar c : withPercents) {
        if (kQuotedExecEscapes.contains(c))
            quoted += QLatin1Char('\\');
        quoted += c;
    }
    quoted += QLatin1Char('"');
    return quoted;
}

QString autostartEntryText(const QString &displayName, const QString &executable)
{
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=%1\n"
                          "Comment=Translate the text under the pointer\n"
                          "Exec=%2\n"
                          "Icon=tolkaro\n"
                          "Terminal=false\n"
                          "X-GNOME-Autostart-enabled=true\n")
        .arg(escapeValue(displayName), escapeValue(quoteExecArgument(executable)));
}

bool isDisabled(const QMap<QString, QString> &group)
{
    return isTrue(group.value(QStringLiteral("Hidden"))) ||
           group.value(QStringLiteral("X-GNOME-Autostart-enabled"))
                   .trimmed()
                   .compare(QLatin1String("false"), Qt::CaseInsensitive) == 0;
}

} // namespace DesktopEntry
