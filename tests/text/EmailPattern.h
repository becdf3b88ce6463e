#pragma once

namespace TestSupport
{

/// The expression that defines which e-mail addresses are valid, in the ECMAScript grammar.
inline constexpr char kEmailPattern[] =
    R"re((?=^.{1,255}$))re"
    R"re((?:[a-zA-Z0-9!#$%&'*+\/=?^_`{|}~-]+)re"
    R"re((?:\.[a-zA-Z0-9!#$%&'*+\/=?^_`{|}~-]+)*)re"
    R"re(|"(?:[\x01-\x08\x0b\x0c\x0e-\x1f\x21\x23-\x5b\x5d-\x7f])re"
    R"re(|\\[\x01-\x09\x0b\x0c\x0e-\x7f])*"))re"
    R"re(@(?:(?:[a-zA-Z0-9](?:[a-zA-Z0-9-]*[a-zA-Z0-9])?\.)+)re"
    R"re([a-zA-Z0-9](?:[a-zA-Z0-9-]*[a-zA-Z0-9])?)re"
    R"re(|\[(?:(?:(2(5[0-5]|[0-4][0-9])|1[0-9][0-9]|[1-9]?[0-9]))\.){3})re"
    R"re((?:(2(5[0-5]|[0-4][0-9])|1[0-9][0-9]|[1-9]?[0-9])|)re"
    R"re([a-zA-Z0-9-]*[a-zA-Z0-9]:(?:[\x01-\x08\x0b\x0c\x0e-\x1f\x21-\x5a\x53-\x7f])re"
    R"re(|\\[\x01-\x09\x0b\x0c\x0e-\x7f])+)\]))re";
static_assert(sizeof(kEmailPattern) == 492 + 1);

} // namespace TestSupport
