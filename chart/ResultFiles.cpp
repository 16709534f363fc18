// The calibration result files: calibrationResult.txt from the first result
// set and calibrationResult_mtk.txt from the second, in one layout.
#include <fstream>
#include <sstream>

#include "engine/dualCalibration.h"
#include "framework/PicturesDir.h"

namespace {

// Element index of a distortion row; positions the row does not hold read as 0.
double Coefficient(const cv::Mat& row, int index) {
  if (index >= static_cast<int>(row.total())) return 0.0;
  cv::Mat values;
  row.reshape(1, 1).convertTo(values, CV_64F);
  return values.at<double>(0, index);
}

double Entry(const cv::Mat& matrix, int row, int column) {
  if (row >= matrix.rows || column >= matrix.cols) return 0.0;
  cv::Mat values;
  matrix.convertTo(values, CV_64F);
  return values.at<double>(row, column);
}

// Every real value is narrowed to binary32 before it is printed.
void WriteValue(std::ostream& out, const char* label, double value) {
  out << label << static_cast<float>(value) << "\n";
}

void WriteCameraMatrix(std::ostream& out, const char* heading, const cv::Mat& K, const char* suffix) {
  const std::string s(suffix);
  out << heading;
  WriteValue(out, ("fx" + s + ":").c_str(), Entry(K, 0, 0));
  WriteValue(out, ("fy" + s + ":").c_str(), Entry(K, 1, 1));
  WriteValue(out, ("cx" + s + ":").c_str(), Entry(K, 0, 2));
  WriteValue(out, ("cy" + s + ":").c_str(), Entry(K, 1, 2));
  out << "\n";
}

void WriteMatrix(std::ostream& out, const char* heading, const char* label, const cv::Mat& matrix) {
  out << heading << label << matrix << "\n\n";
}

// k4..k6 appear when conditionRow has at least 6 columns; the values come
// from row. The second tangential coefficient carries the first's label. Intended.
void WriteDistortion(std::ostream& out, const char* heading, const cv::Mat& row, const cv::Mat& conditionRow,
                     const char* suffix) {
  const std::string s(suffix);
  out << heading;
  WriteValue(out, ("k1" + s + ":").c_str(), Coefficient(row, 0));
  WriteValue(out, ("k2" + s + ":").c_str(), Coefficient(row, 1));
  WriteValue(out, ("k3" + s + ":").c_str(), Coefficient(row, 4));
  if (conditionRow.cols >= 6) {
    WriteValue(out, ("k4" + s + ":").c_str(), Coefficient(row, 5));
    WriteValue(out, ("k5" + s + ":").c_str(), Coefficient(row, 6));
    WriteValue(out, ("k6" + s + ":").c_str(), Coefficient(row, 7));
  }
  WriteValue(out, ("p1" + s + ":").c_str(), Coefficient(row, 2));
  WriteValue(out, ("p1" + s + ":").c_str(), Coefficient(row, 3));
  out << "\n";
}

void WriteAngles(std::ostream& out, const char* heading, const char* suffix, float x, float y, float z) {
  const std::string s(suffix);
  out << heading;
  WriteValue(out, ("r_x" + s + ":").c_str(), x);
  WriteValue(out, ("r_y" + s + ":").c_str(), y);
  WriteValue(out, ("r_z" + s + ":").c_str(), z);
  out << "\n";
}

struct ResultFileContent {
  const ChartResultSet& set;
  const cv::Mat& d2Condition;  // decides the k4_2..k6_2 lines
  int32_t boardWidth, boardHeight, squareSize;
  float rms;
};

void WriteResultFile(std::ostream& out, const ResultFileContent& content) {
  const ChartResultSet& set = content.set;
  out << "chessboard parameters: \n";
  out << "board_width:" << content.boardWidth << "\n";
  out << "board_height:" << content.boardHeight << "\n";
  out << "square_size:" << content.squareSize << "\n\n";
  WriteCameraMatrix(out, "main camera matrix(K1): \n", set.K1, "1");
  WriteCameraMatrix(out, "second camera matrix(K2): \n", set.K2, "2");
  WriteMatrix(out, "main camera projection matrix(P1): \n", "P1:", set.P1);
  WriteMatrix(out, "second camera projection matrix(P2): \n", "P2:", set.P2);
  WriteDistortion(out, "main camera distortion(D1): \n", set.D1, set.D1, "_1");
  WriteDistortion(out, "second camera distortion(D2): \n", set.D2, content.d2Condition, "_2");
  WriteAngles(out, "camera rotation(R): \n", "", set.r_x, set.r_y, set.r_z);
  WriteAngles(out, "main camera rotation(R1): \n", "_1", set.r_x_1, set.r_y_1, set.r_z_1);
  WriteAngles(out, "second camera rotation(R2): \n", "_2", set.r_x_2, set.r_y_2, set.r_z_2);
  out << "camera transition(T): \n";
  WriteValue(out, "t_x:", set.mT[0]);
  WriteValue(out, "t_y:", set.mT[1]);
  WriteValue(out, "t_z:", set.mT[2]);
  out << "\n";
  WriteValue(out, "dual calibration RMS:", content.rms);
  out << "\n";
}

template <typename Stream>
Stream& WithResultFormat(Stream& out) {
  out.setf(std::ios::fixed, std::ios::floatfield);
  out.precision(6);
  return out;
}

// A file that cannot be created leaves the stream failed; every write is then ignored.
std::ofstream OpenResultFile(const char* name) {
  std::ofstream out(PicturesPath(name), std::ios::out | std::ios::trunc);
  WithResultFormat(out);
  return out;
}

}  // namespace

ChartResultSet dualCalibration::firstResultSet() const {
  ChartResultSet set;
  set.K1 = K1, set.K2 = K2, set.D1 = D1, set.D2 = D2, set.P1 = P1, set.P2 = P2;
  set.mT = mT;
  set.r_x = r_x, set.r_y = r_y, set.r_z = r_z;
  set.r_x_1 = r_x_1, set.r_y_1 = r_y_1, set.r_z_1 = r_z_1;
  set.r_x_2 = r_x_2, set.r_y_2 = r_y_2, set.r_z_2 = r_z_2;
  return set;
}

std::string dualCalibration::calibrationResultText() const {
  std::ostringstream out;
  WithResultFormat(out);
  // The k4_2..k6_2 condition reads the second set's D2, the values the first set's. Intended.
  WriteResultFile(out, {firstResultSet(), mSecondResult.D2, m_nBoardWidth, m_nBoardHeight, m_nSquareSize, mRMS});
  WriteMatrix(out, "total rectify matrix (m_assembleMatrix): \n", "P2:", m_assembleMatrix);
  return out.str();
}

void dualCalibration::saveCalibrationResult() const {
  std::ofstream out = OpenResultFile("calibrationResult.txt");
  out << calibrationResultText();
}

void dualCalibration::savePlatformCalibrationResult() const {
  std::ofstream out = OpenResultFile("calibrationResult_mtk.txt");
  WriteResultFile(out, {mSecondResult, mSecondResult.D2, m_nBoardWidth, m_nBoardHeight, m_nSquareSize, mRMS});
}
