// What the linker puts in the place of the functions that record a run.
extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
void __wrap__ZN3sim8Recorder4callESt17basic_string_viewIcSt11char_traitsIcEERKNSt7__cxx1112basic_stringIcS3_SaIcEEESA_RKSt8optionalIlE() {
}
void __wrap__ZN3sim8Recorder9systemLogEiRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_() {}
void __wrap__ZN3sim8Recorder6loggerERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_iS8_() {}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
}
