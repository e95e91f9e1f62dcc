#pragma once

#include "support/assertions/ExactThrow.hpp"
#include "support/operations/Operation.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

/// What every handle class promises, whatever it handles: its default state, copies and moves, what a move
/// leaves behind, assignment to itself, the exchange through move assignment, and how each operation fails on
/// an object that was moved from.
///
/// A test file runs the suite with a traits struct:
///
///     struct X509CertificateTraits
///     {
///         using Handle = X509Certificate;
///         using Failure = X509CertificateException;
///         static constexpr char const* uninitializedText = "Error: X509Certificate is uninitialized.";
///         static constexpr char const* noContentText = "Error: X509Certificate has no content.";
///         // An object with content; the same name gives equal content, another name other content.
///         static X509Certificate loaded(std::string const& name);
///         // Text that tells contents apart and does not change the object; "" for a default object.
///         static std::string identity(X509Certificate const& certificate);
///         // Every operation that refuses an object that was moved from. Each is run on a loaded, a default
///         and a
///         // moved-from object of its own.
///         static std::vector<Operation<X509Certificate>> operations();
///     };
///     INSTANTIATE_TYPED_TEST_SUITE_P(X509Certificate, HandleConformance, X509CertificateTraits);
namespace foundation::test {

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
        return Handle(std::move(source)); // NOLINT(bugprone-use-after-move): what is left is what is wanted
    }

    static void expectMovedFrom(Handle const& handle)
    {
        EXPECT_THROWS_EXACTLY(typename Traits::Failure, Traits::uninitializedText, Handle(handle));
    }
};

TYPED_TEST_SUITE_P(HandleConformance);

TYPED_TEST_P(HandleConformance, TellsItsWitnessesApart)
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

TYPED_TEST_P(HandleConformance, DefaultObjectAnswersOrSaysThatItHasNoContent)
{
    for (auto const& operation : TypeParam::operations()) {
        SCOPED_TRACE(operation.name);
        typename TypeParam::Handle handle;
        if (operation.onDefaultObject == OnDefaultObject::Answers) {
            EXPECT_NO_THROW(operation.run(handle));
        } else {
            EXPECT_THROWS_EXACTLY(
                typename TypeParam::Failure, TypeParam::noContentText, operation.run(handle));
        }
    }
}

TYPED_TEST_P(HandleConformance, LoadedObjectAnswersEveryOperation)
{
    for (auto const& operation : TypeParam::operations()) {
        SCOPED_TRACE(operation.name);
        auto handle = TypeParam::loaded("a");
        EXPECT_NO_THROW(operation.run(handle));
    }
}

TYPED_TEST_P(HandleConformance, MovedFromObjectRefusesEveryOperation)
{
    for (auto const& operation : TypeParam::operations()) {
        SCOPED_TRACE(operation.name);
        auto handle = this->movedFrom();
        EXPECT_THROWS_EXACTLY(
            typename TypeParam::Failure, TypeParam::uninitializedText, operation.run(handle));
    }
}

TYPED_TEST_P(HandleConformance, MovedFromObjectRefusesToBeCopied)
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

TYPED_TEST_P(HandleConformance, CopyHasTheContentAndOutlivesItsSource)
{
    auto const copy = [&] {
        auto const source = TypeParam::loaded("a");
        typename TypeParam::Handle made(source);
        EXPECT_EQ(TypeParam::identity(source), TypeParam::identity(made));
        return made;
    }();
    EXPECT_EQ(TypeParam::identity(copy), this->identityOf("a"));
}

TYPED_TEST_P(HandleConformance, CopyOfADefaultObjectHasNoContent)
{
    typename TypeParam::Handle const source;
    typename TypeParam::Handle const copy(source);
    EXPECT_EQ(TypeParam::identity(copy), "");
}

TYPED_TEST_P(HandleConformance, CopyIsIndependentOfItsSource)
{
    auto source = TypeParam::loaded("a");
    auto const copy = source;
    source = TypeParam::loaded("b");
    EXPECT_EQ(TypeParam::identity(copy), this->identityOf("a"));
    EXPECT_EQ(TypeParam::identity(source), this->identityOf("b"));
}

TYPED_TEST_P(HandleConformance, CopyAssignmentReplacesTheContentAndKeepsTheSource)
{
    auto const source = TypeParam::loaded("a");
    auto target = TypeParam::loaded("b");
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(TypeParam::identity(target), this->identityOf("a"));
    EXPECT_EQ(TypeParam::identity(source), this->identityOf("a"));
}

TYPED_TEST_P(HandleConformance, CopyAssignmentToItselfChangesNothing)
{
    auto handle = TypeParam::loaded("a");
    auto const& same = handle;
    handle = same;
    EXPECT_EQ(TypeParam::identity(handle), this->identityOf("a"));
}

TYPED_TEST_P(HandleConformance, MoveConstructionTakesTheContentAndLeavesNothing)
{
    auto source = TypeParam::loaded("a");
    typename TypeParam::Handle const target(std::move(source));
    EXPECT_EQ(TypeParam::identity(target), this->identityOf("a"));
    this->expectMovedFrom(source); // NOLINT(bugprone-use-after-move): what is left is documented
}

TYPED_TEST_P(HandleConformance, MoveAssignmentExchangesTheContents)
{
    auto left = TypeParam::loaded("a");
    auto right = TypeParam::loaded("b");
    EXPECT_EQ(&(left = std::move(right)), &left);
    EXPECT_EQ(TypeParam::identity(left), this->identityOf("b"));
    EXPECT_EQ(TypeParam::identity(right), this->identityOf("a")); // NOLINT(bugprone-use-after-move)
}

TYPED_TEST_P(HandleConformance, MoveAssignmentExchangesAlsoWhatWasMovedFrom)
{
    auto left = TypeParam::loaded("a");
    auto right = this->movedFrom();
    left = std::move(right);
    this->expectMovedFrom(left);
    EXPECT_EQ(TypeParam::identity(right), this->identityOf("a")); // NOLINT(bugprone-use-after-move)
}

TYPED_TEST_P(HandleConformance, MoveAssignmentToItselfChangesNothing)
{
    auto handle = TypeParam::loaded("a");
    auto& same = handle;
    handle = std::move(same);
    EXPECT_EQ(TypeParam::identity(handle), this->identityOf("a")); // NOLINT(bugprone-use-after-move)
}

TYPED_TEST_P(HandleConformance, ObjectsChangePlacesWithStdSwap)
{
    auto left = TypeParam::loaded("a");
    auto right = TypeParam::loaded("b");
    std::swap(left, right);
    EXPECT_EQ(TypeParam::identity(left), this->identityOf("b"));
    EXPECT_EQ(TypeParam::identity(right), this->identityOf("a"));
}

REGISTER_TYPED_TEST_SUITE_P(
    HandleConformance, TellsItsWitnessesApart, DefaultObjectHasNoContent,
    DefaultObjectAnswersOrSaysThatItHasNoContent, LoadedObjectAnswersEveryOperation,
    MovedFromObjectRefusesEveryOperation, MovedFromObjectRefusesToBeCopied, MovedFromObjectCanBeAssignedTo,
    CopyHasTheContentAndOutlivesItsSource, CopyOfADefaultObjectHasNoContent, CopyIsIndependentOfItsSource,
    CopyAssignmentReplacesTheContentAndKeepsTheSource, CopyAssignmentToItselfChangesNothing,
    MoveConstructionTakesTheContentAndLeavesNothing, MoveAssignmentExchangesTheContents,
    MoveAssignmentExchangesAlsoWhatWasMovedFrom, MoveAssignmentToItselfChangesNothing,
    ObjectsChangePlacesWithStdSwap);

} // namespace foundation::test
