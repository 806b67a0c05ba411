#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/json/arbitrary.h"
#include "tests/json/model.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsoniterator.h"
#include "zovyrnsdk/json/zojsonshapes.h"

namespace {

RC_GTEST_PROP(ZoJsonProperties, WhatIsPrintedParsesToTheSame, (const ZoJson& document)) {
  const std::string text = document.ToString();
  const ZoJson back = ZoJson::ParseString(text);
  RC_ASSERT(back == document);
  RC_ASSERT(back.ToString() == text);
}

RC_GTEST_PROP(ZoJsonProperties, WhatIsRememberedOfOtherDocumentsChangesNothing,
              (const std::vector<ZoJson>& documents)) {
  ZoJsonShapes shapes;
  for (int time = 0; time < 3; ++time) {
    for (const ZoJson& document : documents) {
      const std::string text = document.ToString();
      std::size_t plain = std::size_t{1} << 30;
      std::size_t shaped = plain;
      ZoJson::ParseString(text, plain);
      ZoJson read = ZoJson::ParseString(text, shaped, shapes);
      RC_ASSERT(read == document);
      RC_ASSERT(read.ToString() == text);
      RC_ASSERT(shaped == plain);
      for (ZoJsonIterator it(document); it.Valid(); it.Next()) {
        if (document.IsObject()) {
          RC_ASSERT(read.At(ZoJsonPointer::Member(it.Key())) == it.Value());
          read.Remove(ZoJsonPointer::Member(it.Key()));
        }
      }
      RC_ASSERT(!document.IsObject() || read.Empty());
    }
  }
}

RC_GTEST_PROP(ZoJsonProperties, FlattenAndUnflattenAreInverse, (const ZoJson& document)) {
  const ZoJson flat = document.Flatten();
  RC_ASSERT(flat.IsObject());
  RC_ASSERT(flat.Unflatten().ToString() == document.ToString());
  for (ZoJsonIterator it(flat); it.Valid(); it.Next()) {
    RC_ASSERT(!it.Value().IsObject() || it.Value().Empty());
    RC_ASSERT(document.At(it.Key()) == it.Value());
    RC_ASSERT(ZoJsonPointer(it.Key()).ToString() == it.Key());
  }
}

RC_GTEST_PROP(ZoJsonProperties, AnyObjectUnflattensToSomethingThatFlattensToItself,
              (const ZoJson& document)) {
  const ZoJson deep = document.Unflatten();
  RC_ASSERT(deep.Flatten().Unflatten() == deep);
}

RC_GTEST_PROP(ZoJsonProperties, WhatWasSetIsThere, (ZoJson document)) {
  const std::string path = *AnyPath();
  const ZoJson value = *AnyScalar();
  const ZoJson before = document;
  try {
    document.Set(path, value);
  } catch (const ZoJsonError&) {
    RC_ASSERT(document == before);
    return;
  }
  if (path.find("/-") == std::string::npos) {
    RC_ASSERT(document.At(path) == value);
    RC_ASSERT(document.HasKey(ZoJsonPointer(path)));
  }
}

RC_GTEST_PROP(ZoJsonProperties, APointerReadsBackFromItsText, ()) {
  const std::string text = *AnyText();
  const ZoJsonPointer pointer(text);
  RC_ASSERT(ZoJsonPointer(pointer.ToString()) == pointer);
  RC_ASSERT(ZoJsonPointer(pointer.ToString()).ToString() == pointer.ToString());
  RC_ASSERT(ZoJsonPointer::Combine(pointer, pointer.ToString()).Segments().size() ==
            2 * pointer.Segments().size());
}

// A document that is edited, beside its model.
struct Twin {
  ZoJson value;
  Model model;
};

std::string Text(const Model::Path& path) {
  std::string text;
  for (const std::string& name : path) {
    text += ZoJsonPointer::Member(name).ToString();
  }
  return text;
}

Twin AnyNewTwin(const std::vector<Twin>& twins) {
  switch (*rc::gen::inRange(0, 5)) {
    case 0:
      return {ZoJson::EmptyArray(), Model::Array()};
    case 1:
      return {ZoJson::EmptyObject(), Model::Object()};
    case 2:
      return *rc::gen::elementOf(twins);  // shares all its nodes with the original
    default: {
      const ZoJson scalar = *AnyScalar();
      return {scalar, Model(scalar.ToString())};
    }
  }
}

void Edit(std::vector<Twin>& twins) {
  const auto index = *rc::gen::inRange<std::size_t>(0, twins.size());
  const auto path = *rc::gen::resize(4, rc::gen::container<Model::Path>(AnyName()));
  if (*rc::gen::inRange(0, 4) == 0) {
    RC_ASSERT(twins[index].value.Remove(Text(path)) == twins[index].model.Remove(path));
    return;
  }
  const Twin put = AnyNewTwin(twins);
  const bool possible = twins[index].model.Set(path, put.model);
  try {
    twins[index].value.Set(Text(path), put.value);
    RC_ASSERT(possible);
  } catch (const ZoJsonError&) {
    RC_ASSERT(!possible);
  }
}

RC_GTEST_PROP(ZoJsonProperties, ACopyNeverSeesALaterEdit, ()) {
  std::vector<Twin> twins{{ZoJson::EmptyObject(), Model::Object()}, {ZoJson::EmptyArray(), Model::Array()}};
  const auto steps = *rc::gen::inRange(1, 60);
  for (int step = 0; step < steps; ++step) {
    Edit(twins);
    if (twins.size() < 12 && *rc::gen::inRange(0, 3) == 0) {
      const Twin copy = *rc::gen::elementOf(twins);
      twins.push_back(copy);
      const auto path = *rc::gen::resize(2, rc::gen::container<Model::Path>(AnyName()));
      const Model* part = copy.model.Find(path);
      RC_ASSERT(copy.value.HasKey(Text(path)) == (part != nullptr));
      if (part != nullptr) {
        twins.push_back({copy.value.At(Text(path)), *part});
      }
    }
  }
  for (const Twin& twin : twins) {
    // The model has a document's size squared in texts if they grow too far; they never do in these few
    // steps.
    RC_ASSERT(twin.value.ToString() == twin.model.ToString());
    for (const Twin& other : twins) {
      RC_ASSERT(!(twin.model.ToString() == other.model.ToString()) || twin.value == other.value);
    }
  }
}

RC_GTEST_PROP(ZoJsonProperties, MembersComeAndGoAsInAPlainList, ()) {
  ZoJson value = ZoJson::EmptyObject();
  Model model = Model::Object();
  // Few enough names to meet again, enough of them to cross into the indexed kind of object and back.
  const auto steps = *rc::gen::container<std::vector<int>>(rc::gen::inRange(-40, 40));
  for (const int step : steps) {
    const std::string name = "n" + std::to_string(step < 0 ? -step : step);
    if (step < 0) {
      RC_ASSERT(value.Remove(name) == model.Remove({name}));
    } else {
      value.Set(name, step);
      RC_ASSERT(model.Set({name}, Model(std::to_string(step))));
    }
    RC_ASSERT(value.ToString() == model.ToString());
  }
}

RC_GTEST_PROP(ZoJsonProperties, ElementsComeAndGoAsInAPlainList, ()) {
  ZoJson value = ZoJson::EmptyArray();
  Model model = Model::Array();
  const auto steps = *rc::gen::container<std::vector<int>>(rc::gen::inRange(-12, 20));
  for (const int step : steps) {
    if (step < 0) {
      const std::string index = std::to_string(-step - 1);
      RC_ASSERT(value.Remove(index) == model.Remove({index}));
    } else {
      value.Set("/-", step);
      RC_ASSERT(model.Set({"-"}, Model(std::to_string(step))));
    }
    RC_ASSERT(value.ToString() == model.ToString());
  }
}

}  // namespace
