// Values of the sample package in which no field is what a new one has, and ways through a parcel.

#pragma once

#include <aidl/velmora/sample/Everything.h>
#include <aidl/velmora/sample/InnerNext.h>

#include <string>

namespace sample_test {

inline aidl::velmora::sample::Inner MakeInner(int32_t number) {
    aidl::velmora::sample::Inner inner;
    inner.number = number;
    inner.name = "n" + std::to_string(number);
    return inner;
}

inline aidl::velmora::sample::Everything MakeEverything() {
    using aidl::velmora::sample::Choice;
    using aidl::velmora::sample::Colour;
    using aidl::velmora::sample::Everything;
    Everything all;
    all.flag = false;
    all.small = 127;
    all.letter = u'\x4e2d';
    all.whole = -5;
    all.big = INT64_MIN;
    all.real = -2.5f;
    all.exact = 1e300;
    all.text = std::string("a\0b", 3);
    all.colour = Colour::DARK;
    all.wide = Everything::Wide::HIGH;
    all.inner = MakeInner(1);
    all.pair.left.weight = 3;
    all.pair.right.emplace().weight = 4;
    all.choice = Choice::make<Choice::Tag::text>("chosen");
    all.maybeText = "maybe";
    all.maybeInner = MakeInner(2);
    all.maybeChoice = Choice::make<Choice::Tag::inner>(MakeInner(3));
    all.flags = {true, false, true};
    all.bytes = {0, 255, 7};
    all.letters = {u'a', u'b', u'c'};
    all.wholes = {INT32_MIN};
    all.bigs = {1, INT64_MAX};
    all.reals = {0.5f};
    all.exacts = {0.25, 0.125};
    all.texts = {"", "x"};
    all.colours = {Colour::BLUE};
    all.wides = {Everything::Wide::LOW};
    all.inners = {MakeInner(4), MakeInner(5)};
    all.maybeWholes = std::vector<int32_t>{};
    all.maybeTexts = {{"one", std::nullopt}};
    all.maybeInners = {{std::nullopt, MakeInner(6)}};
    return all;
}

}  // namespace sample_test
