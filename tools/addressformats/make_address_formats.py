#!/usr/bin/env python3
"""Writes resources/AddressFormats.json: one address template per region that ICU knows,
the sender-to-recipient variants, and per-country records.

Templates use the tags <Street/>, <ZIP/>, <City/>, <State/> and <Recipient/>. A template
without <Recipient/> gets the recipient block (organisation, department, name) above it.
Each family names where its line order comes from; re-run after editing:

    python3 tools/addressformats/make_address_formats.py > resources/AddressFormats.json
"""
import json
import sys

UPU = ("UPU, Postal addressing systems in member countries: the country's sheet "
       "(order of street, postcode and locality lines)")
CLDR = ("Unicode CLDR / libaddressinput address metadata, the country's 'fmt' and "
        "'lfmt' (Latin) fields")

# The regions of ICU's list (uloc_getISOCountries), which the tests compare against.
ICU_REGIONS = """AD AE AF AG AI AL AM AO AQ AR AS AT AU AW AX AZ BA BB BD BE BF BG BH BI BJ BL
BM BN BO BQ BR BS BT BV BW BY BZ CA CC CD CF CG CH CI CK CL CM CN CO CR CU CV CW CX CY CZ DE
DG DJ DK DM DO DZ EA EC EE EG EH ER ES ET FI FJ FK FM FO FR GA GB GD GE GF GG GH GI GL GM GN
GP GQ GR GS GT GU GW GY HK HM HN HR HT HU IC ID IE IL IM IN IO IQ IR IS IT JE JM JO JP KE KG
KH KI KM KN KP KR KW KY KZ LA LB LC LI LK LR LS LT LU LV LY MA MC MD ME MF MG MH MK ML MM MN
MO MP MQ MR MS MT MU MV MW MX MY MZ NA NC NE NF NG NI NL NO NP NR NU NZ OM PA PE PF PG PH PK
PL PM PN PR PS PT PW PY QA RE RO RS RU RW SA SB SC SD SE SG SH SI SJ SK SL SM SN SO SR SS ST
SV SX SY SZ TC TD TF TG TH TJ TK TL TM TN TO TR TT TV TW TZ UA UG UM US UY UZ VA VC VE VG VI
VN VU WF WS XK YE YT ZA ZM ZW""".split()

# name: (template, source, member regions). Regions in no family use "postcodeBeforeCity",
# the order the UPU recommends where a country publishes nothing else.
FAMILIES = {
    "postcodeBeforeCity": (
        "<Street/>\n<ZIP/> <City/>", UPU + "; " + CLDR + " ('%A%n%Z %C')",
        "AD AT AX BA BE BG BL CH CV CY CZ DE DK DZ EA EE FI FO FR GF GL GP GR GW HR IC IL IS KW "
        "LA LI LT LU MA MC MD ME MF MK MQ MZ NC NE NL NO PF PL PM PT RE RO RS SE SI SJ SK SM SN "
        "TN VA WF XK YT AF AM AZ BY CU DO EH ET GE GN IR KG LR MG MN OM PY SD SY TJ TM UZ"),
    "postcodeCityProvince": (
        "<Street/>\n<ZIP/> <City/> <State/>", UPU + "; " + CLDR + " ('%A%n%Z %C %S')",
        "IT ES UY"),
    "postcodeCityCommaState": (
        "<Street/>\n<ZIP/> <City/>, <State/>", CLDR + " ('%A%n%D%n%Z %C, %S')", "MX"),
    "postcodeCityStateLine": (
        "<Street/>\n<ZIP/> <City/>\n<State/>", CLDR + " ('%A%n%Z %C%n%S')", "AR CL MY"),
    "postcodeCitySlashProvince": (
        "<Street/>\n<ZIP/> <City/>/<State/>", CLDR + " ('%A%n%Z %C/%S')", "TR"),
    "cityCommaStatePostcode": (
        "<Street/>\n<City/>, <State/> <ZIP/>",
        "USPS Publication 28 (last line: city, state abbreviation, ZIP Code); " + CLDR,
        "US PR VI"),
    "cityStatePostcode": (
        "<Street/>\n<City/> <State/> <ZIP/>",
        "Canada Post Addressing Guidelines; Australia Post addressing guidelines; " + CLDR
        + " ('%A%n%C %S %Z')",
        "CA AU AS GU MP UM FM MH PW PG"),
    "cityPostcode": (
        "<Street/>\n<City/> <ZIP/>", UPU + "; " + CLDR + " ('%A%n%C %Z')",
        "NZ SG LV BD CX CC NF PE BH BN JO LB MT MV NP SA GI PK KH LK MM IQ TZ PH VE SV"),
    "cityLinePostcodeLine": (
        "<Street/>\n<City/>\n<ZIP/>",
        "Royal Mail addressing guidance (post town in its own line, postcode last); " + CLDR,
        "GB GG JE IM FK GS IO PN SH TC AI VG MS BM KY KE ZA"),
    "cityStateLinePostcodeLine": (
        "<Street/>\n<City/>\n<State/>\n<ZIP/>", UPU + "; " + CLDR + " ('%A%n%C%n%S%n%Z')",
        "RU UA KZ EG IE"),
    "cityHyphenState": (
        "<Street/>\n<City/>-<State/>\n<ZIP/>", "Correios addressing rules; " + CLDR
        + " ('%A%n%D%n%C-%S%n%Z')", "BR"),
    "cityPostcodeStateLine": (
        "<Street/>\n<City/> <ZIP/>\n<State/>", "India Post addressing guidance; " + CLDR
        + " ('%A%n%C %Z%n%S')", "IN NG"),
    "cityStatePostcodeLine": (
        "<Street/>\n<City/>\n<State/> <ZIP/>", CLDR + " ('%A%n%C%n%S %Z')", "ID VN TH"),
    "cityStateLine": (
        "<Street/>\n<City/>\n<State/>", CLDR + " ('%A%n%C%n%S'; no postcodes in use)", "HK MO JM KN"),
    "cityCommaStatePostcodeLine": (
        "<Street/>\n<City/>, <State/>\n<ZIP/>", CLDR + " (the Latin form 'lfmt')", "JP KR"),
    "cityStateCommaPostcode": (
        "<Street/>\n<City/>\n<State/>, <ZIP/>", CLDR + " (the Latin form 'lfmt' '%A%n%C%n%S, %Z')",
        "CN TW"),
    "cityStreetPostcode": (
        "<City/>\n<Street/>\n<ZIP/>", "Magyar Posta addressing rules; " + CLDR
        + " ('%N%n%O%n%C%n%A%n%Z')", "HU"),
    "postcodeLineCity": (
        "<Street/>\n<ZIP/>\n<City/>", CLDR + " ('%A%n%Z%n%C')", "NI GT EC CO CR HN MU PA"),
    "streetCity": (
        "<Street/>\n<City/>", UPU + " (no postcode system)",
        "AE AG AO AQ AW BB BF BI BJ BO BQ BS BT BV BW BZ CD CF CG CI CK CM CW DG DJ DM ER FJ GA GD "
        "GH GM GQ GY HM HT KI KM KP LC LS LY ML MR MW NA NR NU PS QA RW SB SC SL SO SR SS ST SX SZ "
        "TD TF TG TK TL TO TT TV UG VC VU WS YE ZM ZW"),
}

# The sender's country changes the form where a country writes domestic mail in its own
# order (largest unit first, recipient last) but mail from abroad in the Latin form.
DOMESTIC = {
    "JP-JP": ("〒<ZIP/>\n<State/><City/><Street/>\n<Recipient/>",
              CLDR + " (the local form 'fmt' '〒%Z%n%S%n%A%n%O%n%N')"),
    "CN-CN": ("<ZIP/>\n<State/><City/>\n<Street/>\n<Recipient/>",
              CLDR + " (the local form 'fmt' '%Z%n%S%C%D%n%A%n%O%n%N')"),
    "TW-TW": ("<ZIP/>\n<State/><City/>\n<Street/>\n<Recipient/>",
              CLDR + " (the local form 'fmt' '%Z%n%S%C%n%A%n%O%n%N')"),
    "KR-KR": ("<State/> <City/>\n<Street/>\n<Recipient/>\n<ZIP/>",
              CLDR + " (the local form 'fmt' '%S %C%D%n%A%n%O%n%N%n%Z')"),
}

# Countries whose name is printed in English on mail to them: their own script is not
# one the sorting offices on the way can be assumed to read.
ENGLISH_NAME = "AE BH CN EG GR HK IL IQ IR JO JP KP KR KW LB MO OM QA RU SA SY TW UA YE".split()


def main():
    formats = {}
    family_of = {}
    families = {}
    for name, (template, source, members) in FAMILIES.items():
        codes = members.split()
        families[name] = {"template": template, "source": source, "countries": sorted(codes)}
        for code in codes:
            if code in family_of:
                sys.exit(f"{code} is in both {family_of[code]} and {name}")
            family_of[code] = name
    for code in ICU_REGIONS:
        family = family_of.setdefault(code, "postcodeBeforeCity")
        if code not in families[family]["countries"]:
            families[family]["countries"].append(code)
            families[family]["countries"].sort()
        formats[code] = FAMILIES[family][0]
    for code in family_of:
        formats.setdefault(code, FAMILIES[family_of[code]][0])
    for key, (template, _) in DOMESTIC.items():
        formats[key] = template
    countries = {}
    for code in sorted(formats):
        if "-" in code:
            continue
        record = {"family": family_of[code]}
        if code in ENGLISH_NAME:
            record["countryNameLocale"] = "en_US"
        countries[code] = record
    document = {
        "about": ("Address templates by recipient country ('DE') and by sender and recipient "
                  "country ('JP-JP'). Generated by tools/addressformats/make_address_formats.py; "
                  "'families' names each form's source."),
        "addressFormats": dict(sorted(formats.items())),
        "countries": countries,
        "families": families,
        "senderRecipientSources": {key: source for key, (_, source) in DOMESTIC.items()},
    }
    json.dump(document, sys.stdout, ensure_ascii=False, indent=1)
    sys.stdout.write("\n")


if __name__ == "__main__":
    main()
