// The XML element tree against pugixml's DOM: build a root with 100 000 children of two
// attributes each, then walk the children by name and read both attributes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include <pugixml.hpp>
#include <vorx/string.h>
#include <vorx/xml.h>

namespace {

using VORX::String::CPPoolString;
using VORX::XML::CPXMLObject;

constexpr int kChildren = 100000;

CPXMLObject BuildVorx() {
  CPPoolString const item(u"item");
  CPPoolString const id(u"id");
  CPPoolString const kind(u"kind");
  CPPoolString const leaf(u"leaf");
  CPXMLObject root;
  root.SetName(u"root");
  for (int i = 0; i < kChildren; ++i) {
    CPXMLObject child;
    child.SetName(item);
    child.AddAttribute(id, CPPoolString(static_cast<std::int32_t>(i)));
    child.AddAttribute(kind, leaf);
    root.Add(child);
  }
  return root;
}

void BuildPugi(pugi::xml_document & document) {
  pugi::xml_node root = document.append_child("root");
  for (int i = 0; i < kChildren; ++i) {
    pugi::xml_node child = root.append_child("item");
    child.append_attribute("id").set_value(i);
    child.append_attribute("kind").set_value("leaf");
  }
}

void XMLTree_Build_VORX(benchmark::State & state) {
  for (auto _ : state) {
    CPXMLObject root = BuildVorx();
    benchmark::DoNotOptimize(root);
  }
  state.SetItemsProcessed(state.iterations() * kChildren);
}
BENCHMARK(XMLTree_Build_VORX)->Unit(benchmark::kMillisecond);

void XMLTree_Build_pugixml(benchmark::State & state) {
  for (auto _ : state) {
    pugi::xml_document document;
    BuildPugi(document);
    benchmark::DoNotOptimize(document);
  }
  state.SetItemsProcessed(state.iterations() * kChildren);
}
BENCHMARK(XMLTree_Build_pugixml)->Unit(benchmark::kMillisecond);

void XMLTree_Read_VORX(benchmark::State & state) {
  CPXMLObject const root = BuildVorx();
  CPPoolString const item(u"item");
  CPPoolString const id(u"id");
  CPPoolString const kind(u"kind");
  for (auto _ : state) {
    std::uint64_t units = 0;
    for (CPXMLObject const * child = root.FindNextElement(item); child;
         child = root.FindNextElement(item, child)) {
      units += child->FindAttribute(id).len() + child->FindAttribute(kind).len();
    }
    benchmark::DoNotOptimize(units);
  }
  state.SetItemsProcessed(state.iterations() * kChildren);
}
BENCHMARK(XMLTree_Read_VORX)->Unit(benchmark::kMillisecond);

void XMLTree_Read_pugixml(benchmark::State & state) {
  pugi::xml_document document;
  BuildPugi(document);
  pugi::xml_node const root = document.child("root");
  for (auto _ : state) {
    std::uint64_t units = 0;
    for (pugi::xml_node child = root.child("item"); child; child = child.next_sibling("item")) {
      units += std::char_traits<char>::length(child.attribute("id").value()) +
               std::char_traits<char>::length(child.attribute("kind").value());
    }
    benchmark::DoNotOptimize(units);
  }
  state.SetItemsProcessed(state.iterations() * kChildren);
}
BENCHMARK(XMLTree_Read_pugixml)->Unit(benchmark::kMillisecond);

} // namespace
