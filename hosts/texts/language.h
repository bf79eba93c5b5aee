// The two languages that the hosts speak.

#ifndef TARVELOQT_HOSTS_TEXTS_LANGUAGE_H
#define TARVELOQT_HOSTS_TEXTS_LANGUAGE_H

#include <QString>

#include <optional>
#include <stdexcept>
#include <utility>

namespace texts {

enum class Language { english, italian };

// The language of everything that is shown from now on; English until one is set.
void setLanguage(Language language);
Language language();

// "en" or "it", in any case; nothing for others.
std::optional<Language> languageNamed(const QString& name);

// Italian when LC_ALL, else LC_MESSAGES, else LANG, the first that is not empty, says so; else
// English.
Language languageOfEnvironment();

// A text in both languages, UTF-8, with the placeholders %1, %2, ... of QString::arg. A constant
// one that lacks a language does not compile.
class Text {
public:
    constexpr Text(const char* italian, const char* english)
        : m_italian(italian)
        , m_english(english)
    {
        if (*italian == '\0' || *english == '\0') {
            throw std::logic_error("a text in one language only");
        }
    }

    QString in(Language wanted) const
    {
        return QString::fromUtf8(wanted == Language::italian ? m_italian : m_english);
    }
    // In the language that is set.
    QString string() const { return in(language()); }
    operator QString() const { return string(); }  // NOLINT(google-explicit-constructor)

    template <typename... Arguments>
    QString arg(Arguments&&... arguments) const
    {
        return string().arg(std::forward<Arguments>(arguments)...);
    }

private:
    const char* m_italian;
    const char* m_english;
};

}  // namespace texts

#endif
