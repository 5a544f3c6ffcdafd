// What guessers try first, written by hand: the words that lists of leaked passwords begin with, in many languages much the same, and the
// commonest words of English.
#pragma once

#include <string_view>

// The commonest first. In small letters, without blanks; the letters that people replace by digits and signs are letters here.
// clang-format off
inline constexpr std::wstring_view kCommonPasswords[] = {
    L"password", L"passwort", L"passw", L"letmein", L"welcome", L"login", L"admin", L"administrator", L"root",
    L"user", L"guest", L"master", L"secret", L"changeme", L"default", L"test", L"testing", L"access",
    L"iloveyou", L"love", L"princess", L"sunshine", L"flower", L"angel", L"baby", L"lovely", L"hello",
    L"dragon", L"monkey", L"tiger", L"shadow", L"qazwsx", L"ninja", L"whatever", L"football", L"baseball",
    L"soccer", L"hockey", L"freedom", L"trustnoone", L"trustno", L"hunter", L"killer", L"charlie", L"michael",
    L"jordan", L"jessica", L"ashley", L"daniel", L"summer", L"winter", L"computer", L"internet", L"cheese",
    L"chocolate", L"correcthorsebatterystaple", L"mustang", L"matrix"};
// clang-format on

// The commonest first.
// clang-format off
inline constexpr std::wstring_view kCommonWords =
    L"the be to of and in that have it for not on with he as you do at this but his by from they we say her she or an will "
    L"my one all would there their what so up out if about who get which go me when make can like time no just him know take "
    L"people into year your good some could them see other than then now look only come its over think also back after use "
    L"two how our work first well way even new want because any these give day most us is are was were been has had did said "
    L"man world life hand part child eye woman place week case point company number group problem fact find tell ask seem "
    L"feel try leave call last long great little own old right big high different small large next early young important few "
    L"public bad same able may am home house water night mother father boy girl school family friend love name room side "
    L"head money story month lot study book job word business issue kind four five three six seven eight nine ten hundred "
    L"thousand million person line end member law car city community president team minute idea body information nothing ago "
    L"lead social whether watch together follow around parent face anything create speak read level allow add office spend "
    L"door health art war history party grow result open morning walk low win research reason remember moment air teacher "
    L"force offer education live down should must never always every where here under again still before between both while "
    L"through off very much many more those such each being does too thing things let keep begin help talk turn start show "
    L"hear play run move believe hold bring happen write provide sit stand lose pay meet include continue set learn change "
    L"stop buy serve die send expect build stay fall cut reach kill remain suggest raise pass sell require report decide "
    L"pull red blue green white black brown yellow pink gray orange gold silver color light dark cold hot warm cool wind "
    L"rain snow sun moon star sky sea river lake mountain tree flower grass garden forest field farm animal dog cat horse "
    L"bird fish cow lion tiger bear wolf fox mouse monkey snake apple bread milk coffee tea sugar salt meat egg cheese cake "
    L"fruit table chair bed window wall floor kitchen street road bridge train plane ship boat bus bike paper pen letter "
    L"picture song music dance game ball king queen prince princess god heaven earth fire stone iron glass wood summer "
    L"winter spring autumn monday friday sunday january june july october december today tomorrow yesterday hello welcome "
    L"please thank sorry happy sad angry beautiful pretty nice fine best better true false free easy hard fast slow strong "
    L"weak rich poor clean dirty full empty heavy quick lazy jump jumps question answer secret password computer phone "
    L"internet key lock safe battery correct staple heart blood brother sister son daughter baby husband wife doctor police "
    L"army soldier dream sleep hope fear peace death power space test second third north south east west left country state "
    L"town village market shop store price food dinner lunch drink beer wine hair eyes feet foot arm leg mouth ear nose "
    L"shirt shoe dress hat coat ring box bag cup bottle knife spoon plate church hospital bank hotel station airport island "
    L"beach desert ocean cloud storm shadow dragon magic angel devil ghost monster hero master captain hunter killer ninja "
    L"pirate robot rocket planet universe nature";
// clang-format on

// Words that stand in sentences, and not in a row of words drawn by lot.
inline constexpr std::wstring_view kSentenceWords[] = {L"the",  L"of",  L"and",  L"to",    L"in",  L"is",  L"it",
                                                       L"that", L"for", L"with", L"are",   L"my",  L"you", L"der",
                                                       L"das",  L"und", L"ist",  L"nicht", L"les", L"est", L"que"};

// Keys that lie or are said in a row.
inline constexpr std::wstring_view kRows[] = {L"abcdefghijklmnopqrstuvwxyz",
                                              L"01234567890",
                                              L"qwertyuiop",
                                              L"asdfghjkl",
                                              L"zxcvbnm",
                                              L"qwertzuiop",
                                              L"yxcvbnm",
                                              L"azertyuiop",
                                              L"qsdfghjklm",
                                              L"wxcvbn",
                                              L"!@#$%^&*()",
                                              L"1qaz2wsx3edc4rfv5tgb6yhn7ujm"};
