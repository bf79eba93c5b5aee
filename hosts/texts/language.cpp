#include "hosts/texts/language.h"

namespace texts {

namespace {

Language& current()
{
    static Language language = Language::english;
    return language;
}

}  // namespace

void setLanguage(Language language)
{
    current() = language;
}

Language language()
{
    return current();
}

std::optional<Language> languageNamed(const QString& name)
{
    const QString lower = name.toLower();
    if (lower == QLatin1String("en")) {
        return Language::english;
    }
    if (lower == QLatin1String("it")) {
        return Language::italian;
    }
    return std::nullopt;
}

Language languageOfEnvironment()
{
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QByteArray locale = qgetenv(variable);
        if (!locale.isEmpty()) {
            const bool isItalian = locale == "it" || locale.startsWith("it_");
            return isItalian ? Language::italian : Language::english;
        }
    }
    return Language::english;
}

}  // namespace texts
