#include <tests/support/TextGenerator.h>

#include <utility>

namespace TestSupport
{

TextGenerator::TextGenerator(unsigned int seed) : m_random(seed)
{
}

std::size_t TextGenerator::Below(std::size_t end)
{
    return m_random() % end;
}

bool TextGenerator::OneIn(std::size_t times)
{
    return Below(times) == 0;
}

char TextGenerator::CharacterOf(std::string_view characters)
{
    return characters[Below(characters.size())];
}

std::string TextGenerator::Run(std::string_view characters, std::size_t least, std::size_t most)
{
    std::string text(least + Below(most - least + 1), '\0');
    for (char& character : text)
    {
        character = CharacterOf(characters);
    }
    return text;
}

std::string_view TextGenerator::Choice(std::initializer_list<std::string_view> choices)
{
    return choices.begin()[Below(choices.size())];
}

std::string TextGenerator::Damaged(std::string text, std::size_t most, std::string_view interesting)
{
    for (std::size_t damages = Below(most + 1); damages > 0; --damages)
    {
        DamageOnce(text, interesting);
    }
    return text;
}

void TextGenerator::DamageOnce(std::string& text, std::string_view interesting)
{
    const char put = OneIn(4) ? static_cast<char>(m_random()) : CharacterOf(interesting);
    const std::size_t at = Below(text.size() + 1);
    if (at == text.size() || OneIn(4))
    {
        text.insert(at, 1, put);
        return;
    }
    switch (Below(4))
    {
    case 0:
        text.erase(at, 1);
        break;
    case 1:
        text[at] = put;
        break;
    case 2:
        text.insert(at, 1, text[at]);
        break;
    default:
        std::swap(text[at], text[Below(text.size())]);
    }
}

} // namespace TestSupport
