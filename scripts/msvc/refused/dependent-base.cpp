template <class T> struct Base
{
    void Call();
};
template <class T> struct Derived : Base<T>
{
    void Use()
    {
        Call();
    }
};
template struct Derived<int>;
