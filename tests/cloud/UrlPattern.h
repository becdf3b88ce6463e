#pragma once

namespace TestSupport
{

/// The expression that defines which web addresses are valid, in the ECMAScript grammar.
inline constexpr char kUrlPattern[] =
    R"re(^((((https?|ftps?|gopher|telnet|nntp)://)|(mailto:|news:))(%[0-9A-Fa-f]{2}|[-()_.!~*';/?:@&=+$,A-Za-z0-9])+)([).!';/?:,][[:blank:]])?$)re";

} // namespace TestSupport
