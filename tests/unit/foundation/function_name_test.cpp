#include "foundation/function_name.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#define NAME_HERE std::wstring(vx::QualifiedFunctionName(__PRETTY_FUNCTION__).text)

namespace probe {

struct Maker {
  std::wstring made;
  Maker() : made(NAME_HERE) {}
  virtual ~Maker() { *last = NAME_HERE; }
  virtual std::wstring Virtual(int, const std::string&) { return NAME_HERE; }
  std::wstring Const() const { return NAME_HERE; }
  std::wstring Quiet() const noexcept { return NAME_HERE; }
  static std::wstring Static() { return NAME_HERE; }
  std::wstring operator()(int) const { return NAME_HERE; }
  std::wstring operator<(int) const { return NAME_HERE; }
  std::wstring operator<<(int) const { return NAME_HERE; }
  explicit operator bool() const {
    *last = NAME_HERE;
    return true;
  }
  const std::wstring& Reference() {
    made = NAME_HERE;
    return made;
  }
  std::wstring* last = nullptr;
};

template <typename T> struct Box {
  std::wstring Name() const { return NAME_HERE; }
};

template <typename T> std::pair<T, std::wstring> Templated(T value) { return {value, NAME_HERE}; }

decltype(auto) Deduced() { return NAME_HERE; }

auto WithCallback(void (*)(int)) { return NAME_HERE; }

std::wstring InLambda(int) {
  return [](double) { return NAME_HERE; }(1.0);
}

} // namespace probe

static std::wstring OperatorThread() noexcept { return NAME_HERE; }

namespace {

std::wstring Hidden() { return NAME_HERE; }

TEST(FunctionName, IsTheQualifiedNameAlone) {
  std::wstring last;
  probe::Maker maker;
  maker.last = &last;
  EXPECT_EQ(maker.made, L"probe::Maker::Maker");
  EXPECT_EQ(maker.Virtual(1, ""), L"probe::Maker::Virtual");
  EXPECT_EQ(maker.Const(), L"probe::Maker::Const");
  EXPECT_EQ(maker.Quiet(), L"probe::Maker::Quiet");
  EXPECT_EQ(maker.Reference(), L"probe::Maker::Reference");
  EXPECT_EQ(probe::Maker::Static(), L"probe::Maker::Static");
  EXPECT_EQ(OperatorThread(), L"OperatorThread");
  EXPECT_EQ(Hidden(), L"Hidden");
  {
    probe::Maker dying;
    dying.last = &last;
  }
  EXPECT_EQ(last, L"probe::Maker::~Maker");
}

TEST(FunctionName, KeepsOperators) {
  std::wstring last;
  probe::Maker maker;
  maker.last = &last;
  EXPECT_EQ(maker(1), L"probe::Maker::operator()");
  EXPECT_EQ(maker < 1, L"probe::Maker::operator<");
  EXPECT_EQ(maker << 1, L"probe::Maker::operator<<");
  EXPECT_TRUE(static_cast<bool>(maker));
  EXPECT_EQ(last, L"probe::Maker::operator bool");
}

TEST(FunctionName, LosesTemplateReturnTypesAndCallbacks) {
  EXPECT_EQ(probe::Templated(1).second.substr(0, 16), L"probe::Templated");
  EXPECT_EQ(probe::Templated(1).second.find(L"pair"), std::wstring::npos);
  EXPECT_EQ(probe::Box<int>().Name().substr(0, 10), L"probe::Box");
  EXPECT_EQ(probe::Deduced(), L"probe::Deduced");
  EXPECT_EQ(probe::WithCallback(nullptr), L"probe::WithCallback");
}

TEST(FunctionName, OfALambdaIsThatOfTheFunctionAroundIt) { EXPECT_EQ(probe::InLambda(1), L"probe::InLambda"); }

// What either compiler prints, whichever of them builds this.
TEST(FunctionName, ReadsTheSignaturesOfBothCompilers) {
#define NAME_OF(signature) std::wstring(vx::QualifiedFunctionName(signature).text)
  EXPECT_EQ(NAME_OF("bool VexelSDKThread::DoOperator(const SDK_OperatorData&)"), L"VexelSDKThread::DoOperator");
  EXPECT_EQ(NAME_OF("bool VexelSDKThread::DoOperator(const SDK_OperatorData &)"), L"VexelSDKThread::DoOperator");
  EXPECT_EQ(NAME_OF("static void VexelSDKThread::OperatorThreadFun()"), L"VexelSDKThread::OperatorThreadFun");
  EXPECT_EQ(NAME_OF("virtual long int A::B(int) const"), L"A::B");
  EXPECT_EQ(NAME_OF("void {anonymous}::OperatorThreadFun()"), L"OperatorThreadFun");
  EXPECT_EQ(NAME_OF("void (anonymous namespace)::OperatorThreadFun()"), L"OperatorThreadFun");
  EXPECT_EQ(NAME_OF("void vx::{anonymous}::A::B({anonymous}::C)"), L"vx::A::B");
  EXPECT_EQ(NAME_OF("void vx::(anonymous namespace)::A::B(int)"), L"vx::A::B");
  EXPECT_EQ(NAME_OF("std::map<int, std::vector<A*> > Ns::F(std::function<void(int)>)"), L"Ns::F");
  EXPECT_EQ(NAME_OF("std::function<void (int)> Ns::F()"), L"Ns::F");
  EXPECT_EQ(NAME_OF("const char *Ns::F()"), L"Ns::F");
  EXPECT_EQ(NAME_OF("const char* Ns::F() noexcept"), L"Ns::F");
  EXPECT_EQ(NAME_OF("A &Ns::F() const &"), L"Ns::F");
  EXPECT_EQ(NAME_OF("decltype(auto) Ns::F()"), L"Ns::F");
  EXPECT_EQ(NAME_OF("T Box<T>::Get() const [with T = int]"), L"Box<T>::Get");
  EXPECT_EQ(NAME_OF("T Ns::Get(T) [T = int]"), L"Ns::Get");
  EXPECT_EQ(NAME_OF("std::ostream& Ns::operator<<(std::ostream&, const A&)"), L"Ns::operator<<");
  EXPECT_EQ(NAME_OF("bool A::operator()(int) const"), L"A::operator()");
  EXPECT_EQ(NAME_OF("A::operator bool() const"), L"A::operator bool");
  EXPECT_EQ(NAME_OF("void my_operator::F()"), L"my_operator::F");
  EXPECT_EQ(NAME_OF("void A::F(int)::<lambda(double)>"), L"A::F");
  EXPECT_EQ(NAME_OF("auto A::F(int)::(anonymous class)::operator()(double) const"), L"A::F");
  EXPECT_EQ(NAME_OF("auto A::F(int)::(lambda)::operator()(double) const"), L"A::F");
  EXPECT_EQ(NAME_OF("A::A(int)"), L"A::A");
  EXPECT_EQ(NAME_OF("virtual A::~A()"), L"A::~A");
  EXPECT_EQ(NAME_OF("int main()"), L"main");
  EXPECT_EQ(NAME_OF("main"), L"main");
#undef NAME_OF
}

} // namespace
