// A walk through the texts that a protocol is made of: each of them, to the letter, stands in what
// the golden runs write or in what a writer writes when it is asked directly.
//
// Left out is what no protocol can hold. A rotation without angles says so on a row that is thrown
// away. A point on a line or plane stores no multipliers, so that its description is never told.
// Dates have tests of their own.

#include "adjustment/adjustment_settings.h"
#include "adjustment/blunder_round_info.h"
#include "checks/latin1.h"
#include "golden/golden_run.h"
#include "golden/scenes.h"
#include "linalg/envelope_system.h"
#include "observations/messung_strecke.h"
#include "protocol/old_style_message_handler.h"
#include "protocol/protocol_target.h"
#include "unknowns/data_ior.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace golden {
namespace {

using vermo::operator""_latin1;

struct Literal {
  const char* german;
  const char* english;
};

// The same in both languages.
constexpr Literal Both(const char* text) { return {text, text}; }

constexpr Literal kFrame[] = {
    Both("<html>\n<body>\n"),
    {"<p><a name=\"Start\">Protokoll Bündelblockausgleichung, Version "_latin1,
     "<p><a name=\"Start\">Protocol of bundle adjustment, Version "},
    Both("\n</a></p>"),
    {"<p><a href=\"#Zusammenfassung\">Zusammenfassung</a></p>",
     "<p><a href=\"#summary\">summary</a></p>"},
    {"<h1>\nUnbekannte</h1>", "<h1>\nUnknowns</h1>"},
    {"<p><a href=\"#interior_orientations\">innere Orientierungen</a></p>",
     "<p><a href=\"#interior_orientations\">interior orientations</a></p>"},
    {"<p><a href=\"#projections\">Projektionen</a></p>",
     "<p><a href=\"#projections\">projections</a></p>"},
    {"<p><a href=\"#exterior_orientations\">äußere Orientierungen</a></p>"_latin1,
     "<p><a href=\"#exterior_orientations\">exterior orientations</a></p>"},
    {"<p><a href=\"#relative_orientations\">relative Orientierungen</a></p>",
     "<p><a href=\"#relative_orientations\">relative orientations</a></p>"},
    {"<p><a href=\"#object_points\">Objektpunkte</a></p>",
     "<p><a href=\"#object_points\">object points</a></p>"},
    {"<p><a href=\"#lines\">Linien</a></p>", "<p><a href=\"#lines\">lines</a></p>"},
    {"<p><a href=\"#planes\">Ebenen</a></p>", "<p><a href=\"#planes\">planes</a></p>"},
    {"<h1>\nBedingungen</h1>", "<h1>\nConstraints</h1>"},
    {"<p><a href=\"#HlmTrn\">Translation</a></p>", "<p><a href=\"#HlmTrn\">translation</a></p>"},
    {"<p><a href=\"#HlmRot\">Rotation</a></p>", "<p><a href=\"#HlmRot\">rotation</a></p>"},
    {"<p><a href=\"#HlmM\">Maßstab</a></p>"_latin1, "<p><a href=\"#HlmM\">scale</a></p>"},
    {"<p><a href=\"#constraints_point_on_line\">Punkt auf Linie</a></p>",
     "<p><a href=\"#constraints_point_on_line\">constraints point on line</a></p>"},
    {"<p><a href=\"#constraints_point_on_plane\">Punkt auf Ebene</a></p>",
     "<p><a href=\"#constraints_point_on_plane\">constraints point on plane</a></p>"},
    {"<h1>\nMessungen</h1>", "<h1>\nMeasurements</h1>"},
    {"<p><a href=\"#image_coordinates\">Bildkoordinaten</a></p>",
     "<p><a href=\"#image_coordinates\">image coordinates</a></p>"},
    {"<p><a href=\"#line_coordinates\">Linienkoordinaten</a></p>",
     "<p><a href=\"#line_coordinates\">line coordinates</a></p>"},
    {"<p><a href=\"#measured_object_points\">Objektpunkte</a></p>",
     "<p><a href=\"#measured_object_points\">object points</a></p>"},
    {"<p><a href=\"#distances\">Strecken</a></p>", "<p><a href=\"#distances\">distances</a></p>"},
    {"<pre>\n\n\n<h3>Starte Ausgleichung:  ", "<pre>\n\n\n<h3>Start of bundle adjustment:  "},
    {"</h3>\n\n\nEinstellungen: \n\n", "</h3>\n\n\nOptions: \n\n"},
    {"\nLoesbarkeitskontrolle.........: 1\n",
     "\nCheck for solvable calculation control for solving...: 1\n"},
    {"\nDaempfungsfaktor..............: 0.800000\n",
     "\nFactor of suppression................................: 0.8\n"},
    {"\nDynamikbereich unterer Wert...: 1.000000\n",
     "\nDynamic range minimum value..........................: 1\n"},
    {"\nDynamikbereich oberer Wert....: 4.000000\n",
     "\nDynamic range maximum value..........................: 4\n"},
    {"\nAusreißertest.................: 0\n"_latin1,
     "\nBlunder detection....................................: 0\n"},
    {"\nTestverfahren Ausreißertest...: Test per Redundanz\n"_latin1,
     "\nType of blunder detection............................: Test by redundancy\n"},
    {"\nTestverfahren Ausreißertest...: Test per innere Zuverlaessigkeit\n"_latin1,
     "\nType of blunder detection............................: Test by interior reliability\n"},
    {"       \n\nBerechnung des Systems:\n\nAufstellung: ",
     "       \n\nCalculation:\n\n      Build: "},
    {" s\n     Lösung: "_latin1, " s\n   Solution: "},
    {" s\n     Gesamt: ", " s\n   Complete: "},
    {" s\n   Schleife: 1 (0)\n         S0: ", " s\n       Loop: 1 (0)\n         S0: "},
    Both("      (S0 apriori:   0.001)\n       norm: "),
    Both("\n          n: "),
    Both("\n          u: "),
    Both("\n          b: "),
    {"\n<h3>Robuste Schätzung...</h3>\n"_latin1, "\n<h3>Robust estemation...</h3>\n"},
    {"\n<h3>L2-Parameterschätzung...</h3>\n"_latin1, "\n<h3>L2-estemation...</h3>\n"},
    {"\nAusreißer gefunden: 7\n\n"_latin1, "\nBlunder found: 7\n\n"},
    {"<h2>\nBerechnung fertig</h2>\n\n\n", "<h2>\nCalculation done</h2>\n\n\n"},
    {"<h4><a name=\"HlmTrn\">*** Bedingung Translation ***</a>",
     "<h4><a name=\"HlmTrn\">*** Constraint translation ***</a>"},
    {"<h4><a name=\"HlmRot\">*** Bedingung Rotation ***</a>",
     "<h4><a name=\"HlmRot\">*** Constraint rotation ***</a>"},
    {"<h4><a name=\"HlmM\">*** Bedingung Maßstab ***</a>"_latin1,
     "<h4><a name=\"HlmM\">*** Constraint scale ***</a>"},
    {" ***</a> <a href=\"#Start\">(zurück zum Anfang)</a></h4>\n"_latin1,
     " ***</a> <a href=\"#Start\">(return to start)</a></h4>\n"},
    {"Aktiv: ja\n\nWert x: ", "Active: yes\n\nValue x: "},
    {"\nWert y: ", "\nValue y: "},
    {"\nWert z: ", "\nValue z: "},
    {"Aktiv: ja\n\nWert : ", "Active: yes\n\nValue : "},
    {"Aktiv: nein\n\n", "Active: no\n\n"},
    {"\nGesamtredundanz:   132.0000\n\n", "\nRedundancy at all:   132.0000\n\n"},
    {"\n<h3>Ende der Ausgleichung: ", "\n<h3>End of bundle adjustment: "},
    {"\n\n      Gesamtlaufzeit:  ", "\n\n      Time:  "},
    Both(" s</h3>\n\n</pre>\n</body>\n</html>\n"),
};

constexpr Literal kFailures[] = {
    {"\n<h3>Abbruch: Fehler -12011 - Keine Messungen vorhanden</h3>\n\n",
     "\n<h3>Abbort: Error -12011 - no observations</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12010 - Linienkoordinaten und variable Hauptpunktlage koennen nicht "
     "zusammen verarbeitet werden</h3>\n\n",
     "\n<h3>Abbort: Error -12010 - line coordinates and variable principal point can not be "
     "calculated together</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12009 - Kein Fortschritt in der Ausgleichung</h3>\n\n",
     "\n<h3>Abbort: Error -12009 - no progress in adjustment</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12008 - Doppelte Daten</h3>\n\n",
     "\n<h3>Abbort: Error -12008 - double data</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12007 - Interner Fehler</h3>\n\n",
     "\n<h3>Abbort: Error -12007 - internal error</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12006 - Keine Unbekannten</h3>\n\n",
     "\n<h3>Abbort: Error -12006 - no unknown</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12005 - Abbruch durch Nutzer</h3>\n\n",
     "\n<h3>Abbort: Error -12005 - abort by user</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12004 - S0 Zu Gross</h3>\n\n",
     "\n<h3>Abbort: Error -12004 - S0 too large</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12003 - Ungültige Parameter</h3>\n\n"_latin1,
     "\n<h3>Abbort: Error -12003 - invalid parameter</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12002 - Keine Messungen vorhanden</h3>\n\n",
     "\n<h3>Abbort: Error -12002 - no observations</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -12001 - Kii gleich Null</h3>\n\n",
     "\n<h3>Abbort: Error -12001 - Kii equal zeroNull</h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -39007 - </h3>\n\n", "\n<h3>Abbort: Error -39007 - </h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -41001 - </h3>\n\n", "\n<h3>Abbort: Error -41001 - </h3>\n\n"},
    {"\n<h3>Abbruch: Fehler -9999 - </h3>\n\n", "\n<h3>Abbort: Error -9999 - </h3>\n\n"},
    {"\n<h3>Berechnung nicht erfolgreich</h3>\n\n", "\n<h3>Calculation failed</h3>\n\n"},
};

constexpr Literal kUnknowns[] = {
    {"\n<h4><a name=\"interior_orientations\">*** Innere Orientierungen ***</a>",
     "\n<h4><a name=\"interior_orientations\">*** Interior orientation ***</a>"},
    {"\n Kamera/R0:               1 ", "\n Camera/R0:               1 "},
    Both("\n Ck       : "),
    Both("\n Xh       : "),
    Both("\n Yh       : "),
    Both("\n A1       : "),
    Both("\n A2       : "),
    Both("\n A3       : "),
    Both("\n B1       : "),
    Both("\n B2       : "),
    Both("\n C1       : "),
    Both("\n C2       : "),
    Both("\n AZ1      : "),
    Both("\n AZ2      : "),
    Both("\n AZ3      : "),
    {"            fest\n", "             fix\n"},
    {"\nKorrelation:\n\nCk     1.000\n", "\nCorrelation:\n\nCk     1.000\n"},
    Both("\nXh   "),
    Both("\nYh   "),
    Both("\nA1   "),
    Both("\nA2   "),
    Both("\nA3   "),
    Both("\nB1   "),
    Both("\nB2   "),
    Both("\nC1   "),
    Both("\nC2   "),
    Both("\nAZ1   "),
    Both("\nAZ2   "),
    Both("\nAZ3   "),
    Both("\n         Ck      Xh      Yh      A1      A2      A3      B1      B2      C1      C2    "
         "  "
         "AZ1      AZ2      AZ3      \n"),
    {"\n<h4><a name=\"projections\">*** Projektionen ***</a>",
     "\n<h4><a name=\"projections\">*** Projections ***</a>"},
    {"\n Projektion:            1\n(1)  Ck       : ",
     "\n Projection:            1\n(1)  Ck       : "},
    {"          fest\n", "           fix\n"},
    {"\n<h4><a name=\"exterior_orientations\">*** Äussere Orientierungen ***</a>"_latin1,
     "\n<h4><a name=\"exterior_orientations\">*** Exterior orientation ***</a>"},
    {"\n  Bild Nr.  | Ior Nr.|     x     |     y     |     z     |    sx    |    sy    |    sz    "
     "| Strahlen |\n",
     "\n  Image no. | Ior no.|     x     |     y     |     z     |    sx    |    sy    |    sz    "
     "|   Rays   |\n"},
    Both("\n                     |   Omega   |    Phi    |   Kappa   |    sO    |    sP    |    sK "
         "  "
         " |  rms vx  |  rms vy  |\n"),
    Both("\n                     |           |           |           |   srx    |   sry    |   srz "
         "  "
         " |  max vx  |  max vy  |\n\n\n"),
    {"      fest       fest       fest ", "       fix        fix        fix "},
    {"   *** Unbekannte deaktiviert ***\n\n", "   *** Unknown disabled ***\n\n"},
    Both("\n           air  rad   "),
    Both("\n           air  gon   "),
    Both("\n           arc  deg   "),
    Both("\n           ttg  gon   "),
    {"         Korrelationen:\n           x ", "          Correlations:\n           x "},
    Both("\n           y "),
    Both("\n           z "),
    Both("\n          rx "),
    Both("\n          ry "),
    Both("\n          rz "),
    Both("\n                  Ck      Xh      Yh      AZ1      \n\n"),
    {"\n<h4><a name=\"relative_orientations\">*** Relative Orientierungen ***</a>",
     "\n<h4><a name=\"relative_orientations\">*** Relative orientation ***</a>"},
    {"\n   ID   | Kamera |Rel.Ori |Abs.Ori |\n", "\n   ID   | Camera |Rel.ori |Abs.ori |\n"},
    {"  *** deaktiviert ***\n", "  *** disabled ***\n"},
    {"\n<h4><a name=\"object_points\">*** Objektpunkte ***</a>",
     "\n<h4><a name=\"object_points\">*** Object points ***</a>"},
    {"\n  Punkt Nr. |      x     |      y     |      z     |    sx   |    sy   |    sz   "
     "|Strahlen| "
     "Ausreißer|\n"_latin1,
     "\n  Point no. |      x     |      y     |      z     |    sx   |    sy   |    sz   |  Rays  "
     "| Blunder|\n"},
    {" 0.0000      fest      fest      fest  ", " 0.0000       fix       fix       fix  "},
    {"   *** Unbekannte deaktiviert ***\n", "   *** unknown disabled ***\n"},
    {"   *** Unbekannte deaktiviert - zu wenig Strahlen ***\n",
     "   *** unknown disabled - not enough rays ***\n"},
    {"\n                        Minimale Standardabweichung:",
     "\n                         minimum standard deviation:"},
    {"\n                        Maximale Standardabweichung:",
     "\n                         maximum standard deviation:"},
    {"\n                       RMS der Standardabweichungen:",
     "\n                             rms standard deviation:"},
    {"\n<h4><a name=\"lines\">*** Linien ***</a>", "\n<h4><a name=\"lines\">*** Lines ***</a>"},
    {"\n  Linie Nr.  |      x1     |      y1     |      z1     |      x2     |      y2     |      "
     "z2     |\n",
     "\n  Point no.  |      x1     |      y1     |      z1     |      x2     |      y2     |      "
     "z2     |\n"},
    Both("\n             |     sx1     |     sy1     |     sz1     |     sx2     |     sy2     |   "
         "  "
         "sz2     |\n\n"),
    {"\n                      fest          fest          fest          fest          fest         "
     " "
     "fest ",
     "\n                       fix           fix           fix           fix           fix         "
     "  "
     "fix "},
    {"\n<h4><a name=\"planes\">*** Ebenen ***</a>", "\n<h4><a name=\"planes\">*** Planes ***</a>"},
    {"\n  Ebene Nr.  |      x1     |      y1     |      z1     |      x2     |      y2     |      "
     "z2     |\n",
     "\n  Plane no.  |      x1     |      y1     |      z1     |      x2     |      y2     |      "
     "z2     |\n"},
    {"\n                      fest          fest          fest          fest          fest         "
     " "
     "fest\n\n",
     "\n                       fix           fix           fix           fix           fix         "
     "  "
     "fix \n\n"},
};

constexpr Literal kObservations[] = {
    {"\n<h4><a name=\"image_coordinates\">*** Bildkoordinaten ***</a>",
     "\n<h4><a name=\"image_coordinates\">*** Image coordinates ***</a>"},
    {"\n Punkt| Bild |   |      x      |      y      |     vx    |     vy    |sx a priori|sy a "
     "priori|  rx  |  ry  | Testwerte \n\n",
     "\n Point| Image|   |      x      |      y      |     vx    |     vy    |sx a priori|sy a "
     "priori|  rx  |  ry  | Test values\n\n"},
    {"\n                             Max Verbesserung: ",
     "\n                           maximum residuals: "},
    Both("  ***\n"),
    Both("  ---\n"),
    {"\n<h4><a name=\"line_coordinates\">*** Linienkoordinaten ***</a>",
     "\n<h4><a name=\"line_coordinates\">*** Line coordinates ***</a>"},
    {"\nPunkt | Bild.| Linie|   |     x     |     y     |   v    |   r    | Testwerte\n\n",
     "\nPoint.| Pict.| Line |   |     x     |     y     |   v    |   r    | Test values\n\n"},
    {"\n                               Max Verbesserung: ",
     "\n                              maximum residuals: "},
    {"\n<h4><a name=\"measured_object_points\">*** Gemessene Objektpunkte ***</a>",
     "\n<h4><a name=\"measured_object_points\">*** Measured object points ***</a>"},
    {"\nPunkt |   |     x     |     y     |     z     |   vx   |   vy   |   vz   |   rx   |   ry   "
     "|   rz   | Testwerte\n",
     "\nPoint.|   |     x     |     y     |     z     |   vx   |   vy   |   vz   |   rx   |   ry   "
     "|   rz   | Test values\n"},
    {"\n                             Max Verbesserung:  -0.0084 ",
     "\n                            maximum residuals:  -0.0084 "},
    {"\n<h4><a name=\"distances\">*** Strecken ***</a>",
     "\n<h4><a name=\"distances\">*** Distances ***</a>"},
    {"\n Punkt | Punkt |   |     s     |    vs    |    rz    |s a priori| Testwerte\n",
     "\n Point.| Point.|   |     s     |    vs    |    rz    |s a priori| Test value\n"},
    {"\n         RMS der Verbesserungen:    0.0126 \n",
     "\n                  rms residuals:    0.0126 \n"},
    {"\n               Max Verbesserung:   -0.0175 \n",
     "\n               maximum residual:   -0.0175 \n"},
    {"\n<h4><a name=\"constraints_point_on_line\">*** Bedingungen Punkt auf einer Linie ***</a>",
     "\n<h4><a name=\"constraints_point_on_line\">*** Constaint points on a linie ***</a>"},
    {"\n   ID   | Punkt  | Linie  |\n", "\n   ID   | Point  |  Line  |\n"},
    {"\n<h4><a name=\"constraints_point_on_plane\">*** Bedingungen Punkt auf einer Ebene ***</a>",
     "\n<h4><a name=\"constraints_point_on_plane\">*** Constraint points on a plane ***</a>"},
    {"\n   ID   | Punkt  | Ebene  |\n", "\n   ID   | Point  | Plane  |\n"},
};

constexpr Literal kBlunders[] = {
    {"\n\nAnzahl der Beobachtungen      : ", "\n\nNumber of observations        : "},
    {"\nAnzahl der Unbekannten        : ", "\nNumber of unknowns            : "},
    {"\nAnzahl der Bedingungen        : ", "\nNumber of constraints         : "},
    {"\nGesamtredundanz               : ", "\nRedundancy                    : "},
    {"\nTestwert für den Ausreißertest: "_latin1, "\nTest value for blunder test   : "},
    {"\n    Aktueller Testwert        : ", "\n  Current test value          : "},
    {"\n    Testwert für Reaktivierung: "_latin1, "\n  Test value for reactivation : "},
    {"\n\nKeine Ausreißer festgestellt. \n\n"_latin1, "\n\nNo blunders found. \n\n"},
    {"\n\nAusreißer: \n\n"_latin1, "\n\nBlunders: \n\n"},
    {"\nReaktivierte Ausreißer: \n\n"_latin1, "\nReactivated Blunders: \n\n"},
    // Of the variant that no run writes.
    {"\n\nAnzahl der Beobachtungen     : 12\n", "\n\nNumber of observations      : 12\n"},
    {"\nAnzahl der Unbekannten       : 5\n", "\nNumber of unknowns          : 5\n"},
    {"\nAnzahl der Bedingungen       : 3\nGesamtredundanz              : 7\n",
     "\nRedundancy                  : 7\n"},
    {"\nTestwert für den Auseißertest: 4.500000\n\n"_latin1,
     "\nTest value for blunder test   : 4.500000\n\n"},
    {"\n   Aktueller Testwert        : 5.500000\n", "\n  Current test value         : 5.500000\n"},
    {"\n   Testwert für Reaktivierung: 6.500000\n\n"_latin1,
     "\n  Test value for reactivation: 6.500000\n\n"},
    {"\nReaktivierte Ausreißer: \n\nStrecke 1 - 2     (1.25)\n\n"_latin1,
     "\nReactivated blunders: \n\nDistance 1 - 2     (1.25)\n\n"},

    {"\nWarnung: Unbekannte deaktiviert - zu wenig Strahlen (1)\n",
     "\nWarning: Unknown disabled - not enough rays (1)\n"},
    {"\nWarnung: Unbekannte deaktiviert - zugehörige Messwerte fehlen\n"_latin1,
     "\nWarning: Unknown disabled - not enough observations\n"},
    {"\nWarnung: Unbekannte reaktiviert - ", "\nWarning: Unknown reactivated - "},
};

constexpr Literal kSummary[] = {
    {"\n<h4><a name=\"Zusammenfassung\">*** Zusammenfassung ***</a>",
     "\n<h4><a name=\"summary\">*** Summary ***</a>"},
    {"<h5>Gesamtstatistik</h5>                 Standardabweichung: ",
     "<h5>Summary of statistics</h5>                 Standard deviation: "},
    {"\n               Anzahl Beobachtungen: ", "\n             Number of observations: "},
    {"\n                  Anzahl Unbekannte: ", "\n                 Number of unknowns: "},
    {"\n                 Anzahl Bedingungen: ", "\n              Number of constraints: "},
    {"\n                    Gesamtredundanz: ", "\n                  Redundancy at all: "},
    {"\n             Durchlaufene Schleifen: ", "\n                              Loops: "},
    {"\n Durchgeführte Ausreißererkennungen: "_latin1, "\n        Blunder detections executed: "},
    {"<h5>Statistik der Kameras</h5>      Anzahl der festen Kameras: ",
     "<h5>Camera statistics</h5>        Number of fixed cameras: "},
    {"\n Anzahl der geschätzten Kameras: "_latin1, "\n    Number of estimated cameras: "},
    {"\nStatistik der Bildkoordinaten für die Kameras:\n\n"_latin1,
     "\nStatistic of image coordinates per camera:\n\n"},
    Both("\n   IOR  |    n     |  rms vx  |  rms vy  |  max vx  |  max vy  |\n"),
    {"<h5>Statistik der Objektpunkte</h5>             Anzahl der festen Objektpunkte: ",
     "<h5>Object coordinate statistics</h5>              Number of fixed object points: "},
    {"\n        Anzahl der geschätzten Objektpunkte: "_latin1,
     "\n          Number of estimated object points: "},
    {"\n        Durchschn. Strahlen pro Objektpunkt: ",
     "\n      Mean number of rays per object points: "},
    Both("\n                                             |     x    |     y    |     z    |\n"),
    {"\n               RMS der Standardabweichungen: ",
     "\n                    Mean standard deviation: "},
    {"\n                Maximale Standardabweichung: ",
     "\n                 Maximum standard deviation: "},
    {"<h5>Statistik der Strecken</h5>       Anzahl der verwendeten Strecken: ",
     "<h5>Distance statistics</h5>     Number of used distances: "},
    {"\n                RMS der Verbesserungen: ", "\n             RMS of residuals: "},
    {"\n                 Maximale Verbesserung: ", "\n             Maximum residual: "},
    {"<h5>Statistik der Bilder</h5>         Anzahl der verwendeten Bilder: ",
     "<h5>Images statistic</h5>        Number of used images: "},
    {"\n Mittlere Anzahl der Strahlen pro Bild:        7.8   pro Bild\n",
     "\nMean number of rays per image:        7.8\n"},
    {"\n          Minimale Anzahl von Strahlen:        0     in Bild  7\n",
     "\n       Minimum number of rays:        0   in image  7\n"},
    {"\nStatistik der Bildkoordinaten für die Bilder:\n\n"_latin1,
     "\nImage coordinate statistics per image:\n\n"},
    Both("\n   EOR  |    n     |  rms vx  |  rms vy  |  max vx  |  max vy  |\n"),
};

constexpr Literal kWarnings[] = {
    {"\n<h4><a name=\"warnungen\">*** Warnungen ***</a>",
     "\n<h4><a name=\"warnungen\">*** Warnings ***</a>"},
    {"\n  101: Daten deaktiviert                   > Objektkoordinate 18\n",
     "\n  101: Data disabled                       > Object coordinate 18\n"},
    {"\n  101: Daten deaktiviert                   > Äussere Orientierung 10\n"_latin1,
     "\n  101: Data disabled                       > Exterior Orientation 10\n"},
    {"\n  102: Fehlende Daten für die Beobachtung  > Bildkoordinate Punkt 1 ,Bild 8\n"_latin1,
     "\n  102: Missing data for observation        > Image coordinate point1 ,Image 8\n"},
    {"\n  102: ... Weitere Warnungen vorhanden\n", "\n  102: ... More warnings pending\n"},
    {"\n  103: Fehlende Basisdaten für Daten       > Relative Orientierung 101\n"_latin1,
     "\n  103: Data without subdata                > Relative orientation 101\n"},
    {"\n  104: Daten haben viele Ausreißer         > Linie1\n"_latin1,
     "\n  104: Data has many blunder               > Line1\n"},
    {"\n  105: Beobachtung hat geringe Redundanz   > Objektkoordinate Punkt 8\n",
     "\n  105: Observation has less redundancy     > Object coordinate point 8\n"},
    {"\n  105: Beobachtung hat geringe Redundanz   > Strecke 2 - 15\n",
     "\n  105: Observation has less redundancy     > Distance 2 - 15\n"},
    {"\n  106: Bedingung sollte zwangsfrei sein    > Bedingung Translation\n",
     "\n  106: Constraint should be free           > Constraint translation\n"},
    Both("\n  107: ***\n"),
    {"\nLinienkoordinate 31 ,Linie 1 ,Bild 3 (", "\nLinie coordinate 31 ,Linie 1 ,Image 3 ("},
};

class Collector final : public vermo::ProtocolTarget {
 public:
  void OnProtocolText(const char* text) override { fTexts += text; }
  [[nodiscard]] const std::string& Texts() const { return fTexts; }

 private:
  std::string fTexts;
};

// What no run of the library asks a writer for.
template <typename Writer>
std::string AskDirectly() {
  const ProtocolFile file;
  Collector collector;
  Writer writer(file.Name());
  writer.SetJob(&collector);
  writer.ReportRobustEstimation();
  writer.ReportL2Estimation();
  writer.ReportBlunderCount(7);
  for (std::int32_t code = -12011; code <= -12001; ++code) writer.RunFailed(code);

  vermo::MessungStrecke distance;
  distance.SetNummern(1, 2);
  vermo::BlunderRoundInfo round;
  round.beobachtungen = 12;
  round.unbekannte = 5;
  round.bedingungen = 3;
  round.redundanz = 10;
  round.testwertKritisch = 4.5;
  round.testwertAusreisser = 5.5;
  round.testwertReaktivierung = 6.5;
  round.reaktiviert.push_back({&distance, 1.25});
  writer.WriteFinalIteration(round);

  // The last depth term of a camera cannot be asked for through a record.
  vermo::DataIor camera;
  camera.SetActive(true);
  camera.SetVariable(true);
  camera.SetParameterMask(vermo::DataIor::Mask(0x1FFF));
  writer.WriteInteriorOrientations({&camera}, vermo::EnvelopeSystem());
  return collector.Texts();
}

std::string EverythingThatIsWritten(Language language) {
  std::string texts;
  for (const Scene& scene : Scenes()) texts += RunScene(language, scene).texts;
  for (const Scene& scene : FailingScenes()) texts += RunScene(language, scene).texts;
  texts += RunTwice(language).texts;
  SetProcessLanguage(language);
  texts += language == Language::German ? AskDirectly<vermo::OldStyleMessageHandlerDE>()
                                        : AskDirectly<vermo::OldStyleMessageHandlerEN>();
  SetProcessLanguage(Language::German);
  return texts;
}

class Literals : public testing::TestWithParam<Language> {
 protected:
  static const std::string& Texts(Language language) {
    static const std::string german = EverythingThatIsWritten(Language::German);
    static const std::string english = EverythingThatIsWritten(Language::English);
    return language == Language::German ? german : english;
  }

  template <std::size_t N>
  void ExpectEach(const Literal (&literals)[N]) {
    const std::string& texts = Texts(GetParam());
    for (const Literal& literal : literals) {
      const char* text = GetParam() == Language::German ? literal.german : literal.english;
      EXPECT_NE(texts.find(text), std::string::npos) << text;
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Protocols,
                         Literals,
                         testing::Values(Language::German, Language::English),
                         [](const auto& instance) {
                           return std::string(instance.param == Language::German ? "German"
                                                                                 : "English");
                         });

TEST_P(Literals, Frame) { ExpectEach(kFrame); }
TEST_P(Literals, Failures) { ExpectEach(kFailures); }
TEST_P(Literals, Unknowns) { ExpectEach(kUnknowns); }
TEST_P(Literals, Observations) { ExpectEach(kObservations); }
TEST_P(Literals, Blunders) { ExpectEach(kBlunders); }
TEST_P(Literals, Summary) { ExpectEach(kSummary); }
TEST_P(Literals, Warnings) { ExpectEach(kWarnings); }

// A German point that comes back tells its rays, an English one does not.
TEST(LiteralsOfOneLanguage, RaysOfAPointThatComesBack) {
  const Scene& everything = Scenes().front();
  EXPECT_NE(
      RunScene(Language::German, everything)
          .texts.find("reaktiviert - Anzahl Strahlen gültig (7)\nObjektkoordinate 5\n"_latin1),
      std::string::npos);
  EXPECT_NE(
      RunScene(Language::English, everything).texts.find("reactivated - \nObject coordinate 5\n"),
      std::string::npos);
}

}  // namespace
}  // namespace golden
