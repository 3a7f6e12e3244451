// A wall's parameter dialog on the parameter model: typed parameters with limits, an insulation
// option that enables the insulation thickness only for one choice, and a simulated dialog pass
// that changes values, tries input outside the limits and reports what changed and what is
// enabled. The test suite compares its output with expected_output.txt.
#include <cstdio>
#include <string>

#include "kbase/params/ObCondition.h"
#include "kbase/params/ObParamList.h"
#include "kbase/params/ObParamMaterial.h"
#include "kbase/params/ObParamOption.h"
#include "kbase/params/ObParamScalar.h"

namespace {

// Attribute numbers of the wall.
enum Attr {
    kSection = 100,
    kThickness = 1,
    kInsulation = 2,
    kInsulationThickness = 3,
    kPen = 4,
    kLinetype = 5,
    kMaterial = 6
};
// The insulation thickness is asked for only with the third item (selection 2) of the option.
constexpr long kMineralWoolSelection = 2;

// The host's texts are in UTF-8 here; the library keeps each text's encoding.
UtCString Text(const char* utf8) {
    return UtCString(utf8, eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
}
std::string Utf8(const UtCString& s) {
    return s.GetUtf8String(0);
}

std::string ValueOf(const ObParam& p) {
    char buffer[64];
    if (const auto* f = dynamic_cast<const ObParamFloat*>(&p)) {
        std::snprintf(buffer, sizeof buffer, "%.*f %s", static_cast<int>(f->GetFloatingLength()),
                      f->GetValue(), Utf8(f->GetUnit()).c_str());
        return buffer;
    }
    if (const auto* o = dynamic_cast<const ObParamOption*>(&p)) {
        return Utf8(o->GetSelectedText()) + " (" + std::to_string(o->GetValue()) + ")";
    }
    if (const auto* m = dynamic_cast<const ObParamMaterial*>(&p)) {
        std::snprintf(buffer, sizeof buffer, "key %ld/%ld, colour %ld", m->GetValue().GetDatabase(),
                      m->GetValue().GetMaterial(), m->GetColor());
        return buffer;
    }
    if (p.IsSection()) return "";
    return std::to_string(p.GetValueInt());
}

// Pads UTF-8 text to width characters (printf would count bytes).
std::string Pad(std::string text, size_t width) {
    size_t characters = 0;
    for (unsigned char c : text) characters += (c & 0xC0) != 0x80;
    if (characters < width) text.append(width - characters, ' ');
    return text;
}

const char* StateName(const ObParam& p) {
    return p.IsChanged() ? "changed" : (p.IsCreated() ? "created" : "up to date");
}

void Show(const ObParamList& dialog, const char* title) {
    std::printf("%s\n", title);
    for (long i = 0; i < dialog.GetCount(); ++i) {
        const ObParam& p = *dialog.Get(i);
        if (p.IsSection()) {
            std::printf("  [%s]\n", Utf8(p.GetParamName()).c_str());
            continue;
        }
        std::printf("  %s %s %-10s %s%s\n", Pad(Utf8(p.GetParamName()), 10).c_str(),
                    Pad(ValueOf(p), 22).c_str(), StateName(p),
                    dialog.IsEnabled(i) ? "enabled" : "disabled", p.IsLocked() ? ", locked" : "");
    }
}

// What the dialog does with typed input: the value is taken only inside the limits; otherwise
// the library's message (German, code page 1252) is shown, converted for the terminal.
void Type(ObParamFloat& p, double input) {
    UtCString message;
    if (p.CheckValueBorders(input, message) != 0) {
        std::printf("  %s %.1f: %s\n", Utf8(p.GetParamName()).c_str(), input,
                    Utf8(message).c_str());
        return;
    }
    p.SetValue(input);
    std::printf("  %s %.1f: taken\n", Utf8(p.GetParamName()).c_str(), input);
}

// Setting the limits marks a new parameter as changed (the element layer relies on that rule);
// the host resets the states once the element has taken its values.
ObParamFloat* Length(long id, const char* name, double value, double min, double max) {
    auto* p = new ObParamFloat(id, Text(name), value, Text("cm"));
    p->SetFloatingLength(1);
    p->SetValidBorders(3);
    p->SetMinValue(min);
    p->SetMaxValue(max);
    return p;
}

}  // namespace

int main() {
    ObParamList dialog;
    dialog.Add(new ObParamSection(kSection, Text("Wand")));
    auto* thickness = Length(kThickness, "Dicke", 24.0, 5.0, 100.0);
    dialog.Add(thickness);
    auto* insulation = new ObParamOption(kInsulation, Text("Dämmung"), 0);
    insulation->AddItem(1, Text("keine"));
    insulation->AddItem(3, Text("Polystyrol"));
    insulation->AddItem(2, Text("Mineralwolle"));
    dialog.Add(insulation);
    auto* insulationThickness = Length(kInsulationThickness, "Dämmdicke", 10.0, 0.0, 40.0);
    insulationThickness->AddConditionInt(insulation, ObCondition::kEqual, kMineralWoolSelection);
    dialog.Add(insulationThickness);
    auto* pen = new ObParamPen(kPen, Text("Stift"), 1, 0);
    dialog.Add(pen);
    dialog.Add(new ObParamLt(kLinetype, Text("Linientyp"), 1, 1, 0));
    auto* material = new ObParamMaterial(kMaterial, Text("Material"), MatDbKey(1, 17));
    material->SetColor(3);
    dialog.Add(material);

    Show(dialog, "New wall:");
    dialog.SetAllStates(ObParam::kStateUpToDate);  // the element has taken the values

    std::printf("Dialog pass:\n");
    Type(*thickness, 5.0);  // the limits themselves are refused
    Type(*thickness, 120.0);
    Type(*thickness, 36.5);
    insulation->SetValue(kMineralWoolSelection);
    Type(*insulationThickness, 40.0);
    Type(*insulationThickness, 12.0);
    pen->SetValue(pen->GetValue());  // the same pen again still counts as a change
    material->SetLocked(true);
    material->SetColor(3);  // unchanged colour: no change

    Show(dialog, "After the dialog:");
    std::printf("Changed:");
    for (long i = 0; i < dialog.GetCount(); ++i) {
        if (dialog.Get(i)->IsChanged())
            std::printf(" %s", Utf8(dialog.Get(i)->GetParamName()).c_str());
    }
    std::printf("\n");

    insulation->SetSelectedId(1);  // back to "keine"
    std::printf("With no insulation the thickness is %s.\n",
                dialog.IsEnabled(3L) ? "enabled" : "disabled");
    return 0;
}
