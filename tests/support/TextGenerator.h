#pragma once

#include <cstddef>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>

namespace TestSupport
{

/// Texts by chance, the same ones for the same seed: pieces of a grammar, and small damages to them.
class TextGenerator
{
public:
    explicit TextGenerator(unsigned int seed);

    /// From 0 to `end` - 1.
    std::size_t Below(std::size_t end);
    /// True once in `times`.
    bool OneIn(std::size_t times);
    char CharacterOf(std::string_view characters);
    /// `least` to `most` characters of `characters`.
    std::string Run(std::string_view characters, std::size_t least, std::size_t most);
    std::string_view Choice(std::initializer_list<std::string_view> choices);

    /// Up to `most` times one character put in, taken out, changed, doubled or moved; what is put in is one of
    /// `interesting` or any byte.
    std::string Damaged(std::string text, std::size_t most, std::string_view interesting);

private:
    void DamageOnce(std::string& text, std::string_view interesting);

    std::mt19937 m_random;
};

/// Every text of up to `most` of these characters.
template <typename Function>
void ForEveryText(std::string_view characters, std::size_t most, const Function& function,
                  const std::string& front = "")
{
    function(front);
    if (front.size() < most)
    {
        for (const char character : characters)
        {
            ForEveryText(characters, most, function, front + character);
        }
    }
}

} // namespace TestSupport
