#pragma once

#include "support/assertions/ExactThrow.hpp"
#include "support/operations/Operation.hpp"

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <typeinfo>
#include <utility>

/// What every handle class promises: its default state, copies and moves, the state after a move,
/// self-assignment, exchange by move assignment, and what each operation does on an object that was moved
/// from.
///
/// A test file runs the suite with a traits struct:
///
///     struct X509CertificateTraits
///     {
///         using Handle = X509Certificate;
///         using Failure = X509CertificateException;
///         static constexpr char const* uninitializedText = "Error: X509Certificate is uninitialized.";
///         // Returns an object with content. Equal names give equal content, other names other content.
///         static X509Certificate loaded(std::string const& name);
///         // Returns text that identifies the content and does not change the object; "" for a default
///         object. static std::string identity(X509Certificate const& certificate);
///         // Returns the class's part of the table of operations. Each operation runs on a loaded, a default
///         // and a moved-from object of its own.
///         static std::vector<Operation<X509Certificate>> const& operations();
///     };
///     INSTANTIATE_TYPED_TEST_SUITE_P(X509Certificate, HandleConformance, X509CertificateTraits);
namespace foundation::test {

/// Whether the function throws exactly that exception.
template <class Function>
testing::AssertionResult failsAs(Failure const& expected, Function const& function)
{
    try {
        function();
    } catch (std::exception const& thrown) {
        return expected.fits(typeid(thrown), thrown.what())
                   ? testing::AssertionSuccess()
                   : testing::AssertionFailure() << describe(typeid(thrown), thrown.what());
    }
    return testing::AssertionFailure() << "nothing was thrown";
}

template <class Traits>
class HandleConformance : public testing::Test
{
protected:
    using Handle = typename Traits::Handle;

    static std::string identityOf(std::string const& name) { return Traits::identity(Traits::loaded(name)); }

    static Handle movedFrom()
    {
        Handle source = Traits::loaded("a");
        Handle const target(std::move(source));
        return Handle(
            std::move(source)); // NOLINT(bugprone-use-after-move): the remaining state is the subject
    }

    static void expectMovedFrom(Handle const& handle)
    {
        EXPECT_THROWS_EXACTLY(typename Traits::Failure, Traits::uninitializedText, Handle(handle));
    }
};

TYPED_TEST_SUITE_P(HandleConformance);

TYPED_TEST_P(HandleConformance, IdentityDistinguishesContents)
{
    EXPECT_EQ(this->identityOf("a"), this->identityOf("a"));
    EXPECT_NE(this->identityOf("a"), this->identityOf("b"));
    EXPECT_NE(this->identityOf("a"), "");
}

TYPED_TEST_P(HandleConformance, DefaultObjectHasNoContent)
{
    typename TypeParam::Handle const handle;
    EXPECT_EQ(TypeParam::identity(handle), "");
}

TYPED_TEST_P(HandleConformance, DefaultObjectAnswersOrReportsMissingContent)
{
    for (auto const& operation : TypeParam::operations()) {
        SCOPED_TRACE(operation.name);
        typename TypeParam::Handle handle;
        if (operation.onDefaultObject) {
            EXPECT_TRUE(
                failsAs(*operation.onDefaultObject, [&] { operation.answer(handle, sharedObjects()); }));
        } else {
            EXPECT_NO_THROW(operation.answer(handle, sharedObjects()));
        }
    }
}

TYPED_TEST_P(HandleConformance, LoadedObjectAnswersEveryOperation)
{
    for (auto const& operation : TypeParam::operations()) {
        SCOPED_TRACE(operation.name);
        auto handle = TypeParam::loaded("a");
        EXPECT_NO_THROW(operation.answer(handle, sharedObjects()));
    }
}

TYPED_TEST_P(HandleConformance, MovedFromObjectRefusesOperations)
{
    for (auto const& operation : TypeParam::operations()) {
        SCOPED_TRACE(operation.name);
        auto handle = this->movedFrom();
        if (operation.refusesMovedFrom) {
            EXPECT_THROWS_EXACTLY(
                typename TypeParam::Failure, TypeParam::uninitializedText,
                operation.answer(handle, sharedObjects()));
        } else {
            EXPECT_NO_THROW(operation.answer(handle, sharedObjects()));
        }
    }
}

TYPED_TEST_P(HandleConformance, MovedFromObjectCannotBeCopied)
{
    auto const source = this->movedFrom();
    this->expectMovedFrom(source);

    auto target = TypeParam::loaded("b");
    EXPECT_THROWS_EXACTLY(typename TypeParam::Failure, TypeParam::uninitializedText, target = source);
    EXPECT_EQ(TypeParam::identity(target), this->identityOf("b"));
}

TYPED_TEST_P(HandleConformance, MovedFromObjectCanBeAssignedTo)
{
    auto copied = this->movedFrom();
    copied = TypeParam::loaded("a");
    EXPECT_EQ(TypeParam::identity(copied), this->identityOf("a"));

    auto const source = TypeParam::loaded("b");
    auto assigned = this->movedFrom();
    assigned = source;
    EXPECT_EQ(TypeParam::identity(assigned), this->identityOf("b"));
}

TYPED_TEST_P(HandleConformance, CopyHasContentAndOutlivesSource)
{
    auto const copy = [&] {
        auto const source = TypeParam::loaded("a");
        typename TypeParam::Handle made(source);
        EXPECT_EQ(TypeParam::identity(source), TypeParam::identity(made));
        return made;
    }();
    EXPECT_EQ(TypeParam::identity(copy), this->identityOf("a"));
}

TYPED_TEST_P(HandleConformance, CopyOfDefaultObjectHasNoContent)
{
    typename TypeParam::Handle const source;
    typename TypeParam::Handle const copy(source);
    EXPECT_EQ(TypeParam::identity(copy), "");
}

TYPED_TEST_P(HandleConformance, CopyIsIndependentOfSource)
{
    auto source = TypeParam::loaded("a");
    auto const copy = source;
    source = TypeParam::loaded("b");
    EXPECT_EQ(TypeParam::identity(copy), this->identityOf("a"));
    EXPECT_EQ(TypeParam::identity(source), this->identityOf("b"));
}

TYPED_TEST_P(HandleConformance, CopyAssignmentReplacesContentAndKeepsSource)
{
    auto const source = TypeParam::loaded("a");
    auto target = TypeParam::loaded("b");
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(TypeParam::identity(target), this->identityOf("a"));
    EXPECT_EQ(TypeParam::identity(source), this->identityOf("a"));
}

TYPED_TEST_P(HandleConformance, SelfCopyAssignmentChangesNothing)
{
    auto handle = TypeParam::loaded("a");
    auto const& same = handle;
    handle = same;
    EXPECT_EQ(TypeParam::identity(handle), this->identityOf("a"));
}

TYPED_TEST_P(HandleConformance, MoveConstructionTakesContentAndLeavesNothing)
{
    auto source = TypeParam::loaded("a");
    typename TypeParam::Handle const target(std::move(source));
    EXPECT_EQ(TypeParam::identity(target), this->identityOf("a"));
    this->expectMovedFrom(source); // NOLINT(bugprone-use-after-move): the state is documented
}

TYPED_TEST_P(HandleConformance, MoveAssignmentExchangesContents)
{
    auto left = TypeParam::loaded("a");
    auto right = TypeParam::loaded("b");
    EXPECT_EQ(&(left = std::move(right)), &left);
    EXPECT_EQ(TypeParam::identity(left), this->identityOf("b"));
    EXPECT_EQ(TypeParam::identity(right), this->identityOf("a")); // NOLINT(bugprone-use-after-move)
}

TYPED_TEST_P(HandleConformance, MoveAssignmentExchangesMovedFromState)
{
    auto left = TypeParam::loaded("a");
    auto right = this->movedFrom();
    left = std::move(right);
    this->expectMovedFrom(left);
    EXPECT_EQ(TypeParam::identity(right), this->identityOf("a")); // NOLINT(bugprone-use-after-move)
}

TYPED_TEST_P(HandleConformance, SelfMoveAssignmentChangesNothing)
{
    auto handle = TypeParam::loaded("a");
    auto& same = handle;
    handle = std::move(same);
    EXPECT_EQ(TypeParam::identity(handle), this->identityOf("a")); // NOLINT(bugprone-use-after-move)
}

TYPED_TEST_P(HandleConformance, StdSwapExchangesContents)
{
    auto left = TypeParam::loaded("a");
    auto right = TypeParam::loaded("b");
    std::swap(left, right);
    EXPECT_EQ(TypeParam::identity(left), this->identityOf("b"));
    EXPECT_EQ(TypeParam::identity(right), this->identityOf("a"));
}

REGISTER_TYPED_TEST_SUITE_P(
    HandleConformance, IdentityDistinguishesContents, DefaultObjectHasNoContent,
    DefaultObjectAnswersOrReportsMissingContent, LoadedObjectAnswersEveryOperation,
    MovedFromObjectRefusesOperations, MovedFromObjectCannotBeCopied, MovedFromObjectCanBeAssignedTo,
    CopyHasContentAndOutlivesSource, CopyOfDefaultObjectHasNoContent, CopyIsIndependentOfSource,
    CopyAssignmentReplacesContentAndKeepsSource, SelfCopyAssignmentChangesNothing,
    MoveConstructionTakesContentAndLeavesNothing, MoveAssignmentExchangesContents,
    MoveAssignmentExchangesMovedFromState, SelfMoveAssignmentChangesNothing, StdSwapExchangesContents);

} // namespace foundation::test
