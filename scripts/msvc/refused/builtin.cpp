int Bits(unsigned x)
{
    return __builtin_popcount(x);
}
